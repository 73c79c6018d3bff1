#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "LibService/api/ServiceApiClient.h"
#include "components/display/activity/ActivityRow.h"
#include "platform/Clock.h"
#include "platform/Lock.h"

namespace quorbel {

/// What came from the service since the last look.
struct CActivityNews {
    std::vector<CActivityRow> rows;
    std::uint64_t missed = 0;  ///< records that the service no longer had when they were asked for
    bool isConnected = false;
};

/// Reads a service's records on a thread of its own, from the oldest that the service still has; connects
/// again, every second, while the service is not there. When nobody takes the news it stops reading at
/// kMostWaiting rows or kMostWaitingBytes, and so takes no more memory, whatever the service does.
class CActivityReader {
 public:
    static constexpr std::size_t kMostWaiting = 10'000;
    static constexpr std::size_t kMostWaitingBytes = std::size_t{8} << 20;
    static constexpr std::chrono::seconds kBetweenConnects{1};

    using ConnectService = std::function<CResult<std::unique_ptr<CServiceApiClient>>()>;
    using ThreadStarter = std::function<CResult<std::thread>(const char*, std::function<void()>)>;

    /// `clock` must outlive the reader. Errors: those of the thread's start, and of making events.
    static CResult<std::unique_ptr<CActivityReader>> Start(ConnectService connect,
                                                           std::shared_ptr<const CTraceTexts> texts,
                                                           const ThreadStarter& startThread, IClock& clock);
    ~CActivityReader();
    CActivityReader(const CActivityReader&) = delete;
    CActivityReader& operator=(const CActivityReader&) = delete;

    /// Set while there is something that Take has not given yet.
    CEvent& HasNews() noexcept { return *m_hasNews; }
    CActivityNews Take();

    /// For Start.
    CActivityReader(ConnectService connect, std::shared_ptr<const CTraceTexts> texts, IClock& clock,
                    std::shared_ptr<CEvent> stop, std::shared_ptr<CEvent> hasNews,
                    std::shared_ptr<CEvent> taken);

 private:
    /// A record that was read, by which its run of the service is known again after a new connection.
    struct CLast {
        std::uint64_t number;
        std::uint64_t time;
    };

    void Run() noexcept;
    void ReadUntilLost(CServiceApiClient& client);
    ErrorCode FindContinuation(CServiceApiClient& client);
    ErrorCode ReadOnce(CServiceApiClient& client);
    ErrorCode Keep(CServiceApiClient& client, std::vector<CServiceRecord> records);
    CResult<std::string> ObjectName(CServiceApiClient& client, std::uint64_t key);
    void Tell(CActivityNews news);
    void SetConnected(bool isConnected);
    bool WaitForRoom();

    const ConnectService m_connect;
    IClock& m_clock;
    const std::shared_ptr<CEvent> m_stop;  // manual reset, as is m_hasNews
    const std::shared_ptr<CEvent> m_hasNews;
    const std::shared_ptr<CEvent> m_taken;

    // Of the reading thread.
    const std::shared_ptr<const CTraceTexts> m_texts;
    std::map<std::uint64_t, std::string> m_objectNames;
    std::uint64_t m_next = 0;  // number of the record to be read next
    std::optional<CLast> m_last;

    CMutex m_lock{LockRank::Innermost};  // guards what follows
    CActivityNews m_news;
    std::size_t m_newsBytes = 0;  // of its rows

    std::thread m_thread;  // last: it uses everything above
};

}  // namespace quorbel
