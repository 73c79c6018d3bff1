#include "components/search/follow/TextReader.h"

#include <mutex>

#include "components/search/follow/FileStatus.h"
#include "platform/Text.h"
#include "platform/Thread.h"

namespace quorbel {

CResult<std::unique_ptr<CTextReader>> CTextReader::Start(CTextWorker::Options options,
                                                         std::shared_ptr<CEvent> read) {
    auto wake = CEvent::Create(EventReset::Auto);
    if (!wake.IsOk()) return wake.Error();
    auto stop = CEvent::Create(EventReset::Manual);
    if (!stop.IsOk()) return stop.Error();
    std::unique_ptr<CTextReader> reader(new CTextReader(std::move(options), std::move(read),
                                                        std::move(wake).Value(), std::move(stop).Value()));
    auto thread = StartThread("SearchTexts", [self = reader.get()] { self->Run(); });
    if (!thread.IsOk()) return thread.Error();
    reader->m_thread = std::move(thread).Value();
    return reader;
}

CTextReader::~CTextReader() {
    m_stop->Set();
    if (m_thread.joinable()) m_thread.join();
}

void CTextReader::Add(CFile file) {
    {
        const std::lock_guard lock(m_lock);
        m_files.push_back(std::move(file));
    }
    m_wake->Set();
}

std::vector<CTextReader::CRead> CTextReader::Take() {
    const std::lock_guard lock(m_lock);
    return std::exchange(m_results, {});
}

void CTextReader::Clear() {
    const std::lock_guard lock(m_lock);
    m_files.clear();
    m_results.clear();
}

void CTextReader::Run() {
    GiveWayToOtherThreads();
    while (!m_stop->Test()) {
        if (ReadNext()) continue;
        Ignore(WaitForAny({m_wake.get(), m_stop.get()}));
    }
}

bool CTextReader::ReadNext() {
    CFile file;
    {
        const std::lock_guard lock(m_lock);
        if (m_files.empty()) return false;
        file = std::move(m_files.front());
        m_files.pop_front();
    }
    auto text = Read(file);
    if (m_stop->Test()) return true;
    CExtractedText result;
    if (text.IsOk()) {
        result = std::move(text).Value();
    } else {
        result.problem =
            "it cannot be read: " + ToUtf8(SystemMessage(ToNumber(text.Error())).value_or(L"error"));
    }
    {
        const std::lock_guard lock(m_lock);
        m_results.push_back({std::move(file), std::move(result)});
    }
    m_read->Set();
    return true;
}

CResult<CExtractedText> CTextReader::Read(const CFile& file) {
    const auto opened = OpenRegularFile(file.folder + "/" + file.name);
    if (!opened.IsOk()) return opened.Error();
    return m_worker.Extract(opened.Value().Get(), TextFormatOf(file.name), *m_stop);
}

}  // namespace quorbel
