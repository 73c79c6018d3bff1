#include "components/search/follow/TextReader.h"

#include <mutex>

#include "components/search/follow/FileStatus.h"
#include "platform/Thread.h"

namespace quorbel {

namespace {

/// A failure that is not the file's is tried again so much later.
constexpr std::chrono::milliseconds kTextRetry{2000};

}  // namespace

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

void CTextReader::Add(CFile file, Place place) {
    {
        const std::lock_guard lock(m_lock);
        std::string path = file.folder + "/" + file.name;
        const bool isNew = m_files.insert_or_assign(path, std::move(file)).second;
        if (place == Place::First) {
            m_order.push_front(std::move(path));
        } else if (isNew) {
            m_order.push_back(std::move(path));
        }
    }
    m_wake->Set();
}

std::vector<CTextReader::CRead> CTextReader::Take() {
    const std::lock_guard lock(m_lock);
    return std::exchange(m_results, {});
}

void CTextReader::Clear() {
    const std::lock_guard lock(m_lock);
    m_order.clear();
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
        while (!m_order.empty() && !m_files.contains(m_order.front())) m_order.pop_front();
        if (m_order.empty()) return false;
        file = std::move(m_files.extract(m_order.front()).mapped());
        m_order.pop_front();
    }
    auto text = Read(file);
    if (m_stop->Test()) return true;
    if (!text) {
        Add(std::move(file), Place::Last);
        WaitUntilSet(*m_stop, kTextRetry);
        return true;
    }
    {
        const std::lock_guard lock(m_lock);
        m_results.push_back({std::move(file), std::move(*text)});
    }
    m_read->Set();
    return true;
}

std::optional<CExtractedText> CTextReader::Read(const CFile& file) {
    const auto opened = OpenUnchanged(file.folder + "/" + file.name, file.stamp);
    // What is another file by now will be added again as such.
    const bool isOther =
        opened.Error() == ErrorCode::SharingViolation || opened.Error() == ErrorCode::FileNotFound ||
        opened.Error() == ErrorCode::PathNotFound || opened.Error() == ErrorCode::CantResolveFilename;
    if (isOther) return CExtractedText();
    if (!opened.IsOk()) return LastingProblem(opened.Error());
    auto text = m_worker.Extract(opened.Value().Get(), TextFormatOf(file.name), *m_stop);
    if (!text.IsOk()) return std::nullopt;
    return std::move(text).Value();
}

}  // namespace quorbel
