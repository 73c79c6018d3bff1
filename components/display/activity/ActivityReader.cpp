#include "components/display/activity/ActivityReader.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <mutex>

namespace quorbel {

namespace {

/// How long the service is to wait for a record before it answers that there is none.
constexpr std::chrono::seconds kWaitForRecords{5};

}  // namespace

CResult<std::unique_ptr<CActivityReader>> CActivityReader::Start(ConnectService connect,
                                                                 std::shared_ptr<const CTraceTexts> texts,
                                                                 const ThreadStarter& startThread,
                                                                 IClock& clock) {
    auto stop = CEvent::Create(EventReset::Manual);
    if (!stop.IsOk()) return stop.Error();
    auto hasNews = CEvent::Create(EventReset::Manual);
    if (!hasNews.IsOk()) return hasNews.Error();
    auto taken = CEvent::Create(EventReset::Auto);
    if (!taken.IsOk()) return taken.Error();
    auto reader = std::make_unique<CActivityReader>(std::move(connect), std::move(texts), clock, stop.Value(),
                                                    hasNews.Value(), taken.Value());
    auto thread = startThread("ActivityReader", [raw = reader.get()] { raw->Run(); });
    if (!thread.IsOk()) return thread.Error();
    reader->m_thread = std::move(thread).Value();
    return reader;
}

CActivityReader::CActivityReader(ConnectService connect, std::shared_ptr<const CTraceTexts> texts,
                                 IClock& clock, std::shared_ptr<CEvent> stop, std::shared_ptr<CEvent> hasNews,
                                 std::shared_ptr<CEvent> taken)
    : m_connect(std::move(connect)),
      m_clock(clock),
      m_stop(std::move(stop)),
      m_hasNews(std::move(hasNews)),
      m_taken(std::move(taken)),
      m_texts(std::move(texts)) {}

CActivityReader::~CActivityReader() {
    m_stop->Set();
    if (m_thread.joinable()) m_thread.join();
}

CActivityNews CActivityReader::Take() {
    const std::lock_guard guard(m_lock);
    m_hasNews->Clear();
    CActivityNews news = std::exchange(m_news, {});
    m_news.isConnected = news.isConnected;
    m_newsBytes = 0;
    m_taken->Set();
    return news;
}

void CActivityReader::Run() noexcept try {
    while (!m_stop->Test()) {
        auto client = m_connect();
        if (client.IsOk()) ReadUntilLost(*client.Value());
        SetConnected(false);
        if (!m_stop->Test()) m_clock.Pause(kBetweenConnects, *m_stop);
    }
} catch (const std::exception&) {
    return;  // out of memory: the display shows what it has
}

void CActivityReader::ReadUntilLost(CServiceApiClient& client) {
    m_objectNames.clear();
    ErrorCode code = FindContinuation(client);
    if (code == ErrorCode::Success) SetConnected(true);
    while (code == ErrorCode::Success && WaitForRoom()) code = ReadOnce(client);
}

/// Decides whether the service is in the run whose records were read last: then reading goes on where it
/// ended, else at the first record of the new run.
ErrorCode CActivityReader::FindContinuation(CServiceApiClient& client) {
    if (!m_last) return ErrorCode::Success;
    auto answer = client.ReadRecords(m_last->number, std::chrono::milliseconds(0), *m_stop);
    if (!answer.IsOk()) return answer.Error();
    const CServiceRecords& found = answer.Value();
    bool isSameRun = found.next >= m_next;
    const auto first = std::find_if(found.records.begin(), found.records.end(),
                                    [this](const auto& record) { return record.number >= m_last->number; });
    if (isSameRun && first != found.records.end())
        isSameRun =
            first->number == m_last->number ? first->time == m_last->time : first->time >= m_last->time;
    if (!isSameRun) m_next = 0;
    return ErrorCode::Success;
}

ErrorCode CActivityReader::ReadOnce(CServiceApiClient& client) {
    auto answer = client.ReadRecords(m_next, kWaitForRecords, *m_stop);
    if (!answer.IsOk()) return answer.Error();
    return Keep(client, std::move(answer.Value().records));
}

ErrorCode CActivityReader::Keep(CServiceApiClient& client, std::vector<CServiceRecord> records) {
    CActivityNews news;
    ErrorCode code = ErrorCode::Success;
    for (CServiceRecord& record : records) {
        if (record.number < m_next) continue;  // an answer may begin before what was asked for
        auto object = ObjectName(client, record.object);
        code = object.Error();
        if (code != ErrorCode::Success) break;  // this record is read again after the next connection
        // What was gone before the first look is not missed.
        if (m_next != 0 && record.number > m_next) news.missed += record.number - m_next;
        m_next = record.number + 1;
        m_last = CLast{record.number, record.time};
        news.rows.push_back(MakeRow(std::move(record), object.Value(), *m_texts));
    }
    Tell(std::move(news));
    return code;
}

CResult<std::string> CActivityReader::ObjectName(CServiceApiClient& client, std::uint64_t key) {
    const auto known = m_objectNames.find(key);
    if (known != m_objectNames.end()) return known->second;
    auto name = client.ObjectName(key, *m_stop);
    if (!name.IsOk() && name.Error() != ErrorCode::NotFound) return name;
    return m_objectNames.emplace(key, name.IsOk() ? name.Value() : std::string()).first->second;
}

void CActivityReader::Tell(CActivityNews news) {
    if (news.rows.empty()) return;
    std::size_t bytes = 0;
    for (const CActivityRow& row : news.rows) bytes += row.Bytes();
    const std::lock_guard guard(m_lock);
    std::move(news.rows.begin(), news.rows.end(), std::back_inserter(m_news.rows));
    m_news.missed += news.missed;
    m_newsBytes += bytes;
    m_hasNews->Set();
}

void CActivityReader::SetConnected(bool isConnected) {
    const std::lock_guard guard(m_lock);
    if (m_news.isConnected == isConnected) return;
    m_news.isConnected = isConnected;
    m_hasNews->Set();
}

/// False when the reader is to stop.
bool CActivityReader::WaitForRoom() {
    for (;;) {
        {
            const std::lock_guard guard(m_lock);
            if (m_news.rows.size() < kMostWaiting && m_newsBytes < kMostWaitingBytes) return !m_stop->Test();
        }
        const auto woken = WaitForAny({m_stop.get(), m_taken.get()});
        if (!woken.IsOk() || woken.Value() == 0) return false;
    }
}

}  // namespace quorbel
