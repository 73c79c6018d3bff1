#include "components/search/SearchIndex.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <mutex>
#include <optional>
#include <poll.h>
#include <thread>
#include <unistd.h>

#include "components/search/follow/Indexer.h"
#include "platform/LocalPath.h"
#include "platform/Lock.h"
#include "platform/Text.h"
#include "platform/Thread.h"

namespace quorbel {

namespace {

/// After a failure everything is tried again so much later.
constexpr std::chrono::milliseconds kRetry{3000};

/// "/a/b" for a folder of the service; none for what cannot be a folder.
std::optional<std::string> TopOf(const std::wstring& folder) {
    const auto local = ToLocalPath(folder);
    if (!local.IsOk() || !local.Value().starts_with('/')) return std::nullopt;
    std::string path = std::filesystem::path(local.Value()).lexically_normal();
    while (path.ends_with('/')) path.pop_back();
    return path;
}

class CSearchIndex final : public ISearchIndex {
 public:
    struct Events {
        std::shared_ptr<CEvent> wake;
        std::shared_ptr<CEvent> stop;
        std::shared_ptr<CEvent> textRead;
    };
    CSearchIndex(Options options, Events events, std::unique_ptr<CTextReader> texts)
        : m_options(std::move(options)), m_events(std::move(events)), m_texts(std::move(texts)) {}
    ~CSearchIndex() override {
        m_events.stop->Set();
        if (m_thread.joinable()) m_thread.join();
    }

    void Publish(const std::vector<std::wstring>& folders) override {
        std::vector<std::string> tops;
        for (const std::wstring& folder : folders) {
            if (auto top = TopOf(folder)) tops.push_back(std::move(*top));
        }
        {
            const std::lock_guard lock(m_lock);
            m_published = std::move(tops);
        }
        m_events.wake->Set();
    }

    ErrorCode StartFollowing() {
        auto thread = StartThread("SearchIndex", [this] { Run(); });
        if (!thread.IsOk()) return thread.Error();
        m_thread = std::move(thread).Value();
        return ErrorCode::Success;
    }

 private:
    void Run();
    ErrorCode Follow();
    ErrorCode TakeRequests();
    ErrorCode RebuildOnRequest();
    void MakeAnew();
    void Wait(std::chrono::milliseconds time);
    void Report(ErrorCode error);

    const Options m_options;
    const Events m_events;
    const std::unique_ptr<CTextReader> m_texts;
    std::thread m_thread;

    // Used by the thread.
    std::unique_ptr<CIndexer> m_indexer;
    std::vector<std::string> m_tops;
    bool m_hasTops = false;
    ErrorCode m_reported = ErrorCode::Success;

    CMutex m_lock{LockRank::Innermost};                   // guards:
    std::optional<std::vector<std::string>> m_published;  // not taken yet
};

void CSearchIndex::Run() {
    while (!m_events.stop->Test()) {
        const ErrorCode error = Follow();
        if (error == ErrorCode::Success) continue;
        Report(error);
        if (error == ErrorCode::InvalidData) MakeAnew();
        m_options.clock.Pause(kRetry, *m_events.stop);
    }
}

ErrorCode CSearchIndex::Follow() {
    ErrorCode error = TakeRequests();
    if (error != ErrorCode::Success) return error;
    if (m_indexer) {
        do {
            error = RebuildOnRequest();
            if (error == ErrorCode::Success) error = m_indexer->Step();
            if (error != ErrorCode::Success) return error;
        } while (m_indexer->IsBusy() && !m_events.stop->Test() && !m_events.wake->Test());
        m_reported = ErrorCode::Success;
    }
    Wait(m_indexer ? m_indexer->UntilNextLook() : kRetry);
    return ErrorCode::Success;
}

ErrorCode CSearchIndex::TakeRequests() {
    std::optional<std::vector<std::string>> published;
    {
        const std::lock_guard lock(m_lock);
        published = std::exchange(m_published, std::nullopt);
    }
    if (published) {
        m_tops = std::move(*published);
        m_hasTops = true;
    }
    if (!m_hasTops) return ErrorCode::Success;
    if (!m_indexer) {
        auto indexer = CIndexer::Create(m_options.folder, *m_texts, m_options.clock);
        if (!indexer.IsOk()) return indexer.Error();
        m_indexer = std::move(indexer).Value();
        published = m_tops;
    }
    if (published) m_indexer->SetTops(m_tops);
    return ErrorCode::Success;
}

ErrorCode CSearchIndex::RebuildOnRequest() {
    const std::string request = m_options.folder + "/" + kRebuildRequest;
    if (::access(request.c_str(), F_OK) != 0) return ErrorCode::Success;
    const ErrorCode error = m_indexer->Rebuild();
    if (error != ErrorCode::Success) return error;
    return ::unlink(request.c_str()) == 0 ? ErrorCode::Success : ErrorFromErrno(errno);
}

void CSearchIndex::MakeAnew() {
    // Damage is seldom seen when the index is opened.
    m_indexer.reset();
    Ignore(CIndexDatabase::Remove(m_options.folder));
}

void CSearchIndex::Wait(std::chrono::milliseconds time) {
    if (m_indexer && m_indexer->IsBusy()) return;
    std::array<pollfd, 4> waits{pollfd{m_events.wake->Descriptor(), POLLIN, 0},
                                pollfd{m_events.stop->Descriptor(), POLLIN, 0},
                                pollfd{m_events.textRead->Descriptor(), POLLIN, 0},
                                pollfd{m_indexer ? m_indexer->Descriptor() : -1, POLLIN, 0}};
    Ignore(::poll(waits.data(), waits.size(), static_cast<int>(time.count())));
    m_events.wake->Clear();
    m_events.textRead->Clear();
}

void CSearchIndex::Report(ErrorCode error) {
    if (std::exchange(m_reported, error) == error || !m_options.report) return;
    std::wstring reason = SystemMessage(ToNumber(error)).value_or(L"unknown error");
    if (reason.ends_with(L'.')) reason.pop_back();
    m_options.report(reason);
}

}  // namespace

CResult<std::unique_ptr<ISearchIndex>> ISearchIndex::Start(Options options) {
    auto wake = CEvent::Create(EventReset::Auto);
    auto stop = CEvent::Create(EventReset::Manual);
    auto textRead = CEvent::Create(EventReset::Auto);
    for (const auto* const event : {&wake, &stop, &textRead}) {
        if (!event->IsOk()) return event->Error();
    }
    auto texts = CTextReader::Start(options.worker, textRead.Value());
    if (!texts.IsOk()) return texts.Error();
    auto index = std::make_unique<CSearchIndex>(
        std::move(options), CSearchIndex::Events{wake.Value(), stop.Value(), textRead.Value()},
        std::move(texts).Value());
    const ErrorCode error = index->StartFollowing();
    if (error != ErrorCode::Success) return error;
    return std::unique_ptr<ISearchIndex>(std::move(index));
}

}  // namespace quorbel
