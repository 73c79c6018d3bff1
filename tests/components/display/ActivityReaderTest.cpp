#include "LibService/trace/TraceArguments.h"
#include "components/display/activity/ActivityReader.h"
#include "platform/Thread.h"
#include "tests/support/HandClock.h"

namespace quorbel {
namespace {

constexpr std::chrono::seconds kLong{60};

/// A service that a test plays: its records, how it fails, and what it was asked.
struct CFakeService {
    std::mutex lock;  // guards what follows
    std::uint64_t oldest = 0;
    std::uint64_t next = 0;
    std::uint64_t started = 1000;  ///< time of record 0
    bool isThere = true;
    bool breaks = false;                    ///< the next answer is a broken pipe
    std::optional<std::uint64_t> beginsAt;  ///< the next answer begins there, whatever is asked for
    int connects = 0;
    std::map<std::uint64_t, int> nameRequests;
    std::shared_ptr<CEvent> changed = CEvent::Create(EventReset::Auto).Value();

    template <class Change>
    void Do(Change change) {
        {
            const std::lock_guard guard(lock);
            change(*this);
        }
        changed->Set();
    }
};

class CFakeClient final : public CServiceApiClient {
 public:
    explicit CFakeClient(CFakeService& service) : m_service(service) {}

    CResult<CServiceRecords> ReadRecords(std::uint64_t first, std::chrono::milliseconds wait,
                                         CEvent& stop) override {
        for (;;) {
            {
                const std::lock_guard guard(m_service.lock);
                if (m_service.breaks) {
                    m_service.breaks = false;
                    return ErrorCode::BrokenPipe;
                }
                CServiceRecords answer = Answer(first);
                if (!answer.records.empty() || wait.count() == 0) return answer;
            }
            if (WaitForAny({&stop, m_service.changed.get()}).Value() == 0) return ErrorCode::Cancelled;
        }
    }
    CResult<std::string> ObjectName(std::uint64_t key, CEvent&) override {
        const std::lock_guard guard(m_service.lock);
        ++m_service.nameRequests[key];
        if (key == 0) return ErrorCode::NotFound;
        return "Object " + std::to_string(key);
    }

 private:
    CServiceRecords Answer(std::uint64_t first) {
        constexpr std::size_t kMostInAnswer = 100;
        CServiceRecords answer{{}, m_service.next};
        first = std::exchange(m_service.beginsAt, std::nullopt).value_or(first);
        for (auto number = std::max(first, m_service.oldest); number < m_service.next; ++number) {
            if (answer.records.size() == kMostInAnswer) break;
            answer.records.push_back({number, m_service.started + number, 0xC0010001, number % 3, {}});
        }
        return answer;
    }
    CFakeService& m_service;
};

class ActivityReaderTest : public ::testing::Test {
 protected:
    ActivityReaderTest() {
        m_clock.RunFreely(false);
        m_service.next = 5;
    }
    void Start() {
        m_reader = CActivityReader::Start(
                       [this]() -> CResult<std::unique_ptr<CServiceApiClient>> {
                           const std::lock_guard guard(m_service.lock);
                           ++m_service.connects;
                           if (!m_service.isThere) return ErrorCode::FileNotFound;
                           return std::unique_ptr<CServiceApiClient>(new CFakeClient(m_service));
                       },
                       std::make_shared<const CTraceTexts>(), StartThread, m_clock)
                       .Value();
    }
    /// Takes news until the record before `end` has come.
    void TakeUntil(std::uint64_t end) {
        while (m_numbers.empty() || m_numbers.back() + 1 != end) Take();
    }
    void Take() {
        ASSERT_TRUE(WaitForAny({&m_reader->HasNews()}, kLong).IsOk());
        CActivityNews news = m_reader->Take();
        for (const CActivityRow& row : news.rows) m_numbers.push_back(row.number);
        m_rows.insert(m_rows.end(), news.rows.begin(), news.rows.end());
        m_missed += news.missed;
        m_isConnected = news.isConnected;
    }
    void TakeUntilConnected(bool isConnected) {
        while (m_isConnected != isConnected) Take();
    }

    CHandClock m_clock;
    CFakeService m_service;
    std::vector<std::uint64_t> m_numbers;
    std::vector<CActivityRow> m_rows;
    std::uint64_t m_missed = 0;
    bool m_isConnected = false;
    std::unique_ptr<CActivityReader> m_reader;
};

using Numbers = std::vector<std::uint64_t>;

TEST_F(ActivityReaderTest, BringsWhatIsKeptThenWhatComesAndAsksForEachObjectsNameOnce) {
    m_service.oldest = 3;
    Start();
    TakeUntil(5);
    m_service.Do([](auto& service) { service.next = 8; });
    TakeUntil(8);
    EXPECT_EQ(m_numbers, (Numbers{3, 4, 5, 6, 7}));
    EXPECT_EQ(m_missed, 0U);
    EXPECT_TRUE(m_isConnected);
    EXPECT_EQ(m_rows[0].object, "");  // unknown to the service
    EXPECT_EQ(m_rows[1].object, "Object 1");
    EXPECT_EQ(m_service.nameRequests, (std::map<std::uint64_t, int>{{0, 1}, {1, 1}, {2, 1}}));
}

TEST_F(ActivityReaderTest, CountsTheRecordsThatTheServiceNoLongerHad) {
    Start();
    TakeUntil(5);
    m_service.Do([](auto& service) {
        service.oldest = 9;
        service.next = 10;
    });
    TakeUntil(10);
    EXPECT_EQ(m_missed, 4U);
}

TEST_F(ActivityReaderTest, ConnectsAgainEverySecondAndGoesOnWhereItWas) {
    constexpr std::chrono::seconds kSecond{1};
    m_service.isThere = false;
    EXPECT_TRUE(m_clock.PausesAfter([&] { Start(); }));
    EXPECT_TRUE(m_clock.PausesAfter([&] { m_clock.Turn(kSecond); }));
    m_service.Do([](auto& service) { service.isThere = true; });
    m_clock.Turn(kSecond);
    TakeUntil(5);
    EXPECT_EQ(m_service.connects, 3);

    EXPECT_TRUE(m_clock.PausesAfter([&] { m_service.Do([](auto& service) { service.breaks = true; }); }));
    m_service.Do([](auto& service) { service.next = 7; });
    m_clock.Turn(kSecond);
    TakeUntil(7);
    EXPECT_EQ(m_numbers, (Numbers{0, 1, 2, 3, 4, 5, 6}));
    EXPECT_TRUE(m_isConnected);
}

TEST_F(ActivityReaderTest, PassesOverRecordsBeforeTheOneThatItAskedFor) {
    Start();
    TakeUntil(5);
    m_service.Do([](auto& service) {
        service.beginsAt = 2;
        service.next = 8;
    });
    TakeUntil(8);
    m_clock.RunFreely(true);
    m_service.Do([](auto& service) {  // and when it connects again
        service.breaks = true;
        service.beginsAt = 2;
        service.next = 10;
    });
    TakeUntil(10);
    EXPECT_EQ(m_numbers, (Numbers{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(m_missed, 0U);
}

TEST_F(ActivityReaderTest, BeginsAnewWithAServiceThatWasStartedAgain) {
    for (const std::uint64_t next : {2, 5, 9}) {  // fewer records than before, as many, more
        m_numbers.clear();
        Start();
        TakeUntil(5);
        m_service.Do([](auto& service) { service.breaks = true; });
        TakeUntilConnected(false);
        m_numbers.clear();
        m_service.Do([&](auto& service) {
            service.started += 1'000'000;
            service.next = next;
        });
        m_clock.RunFreely(true);
        TakeUntilConnected(true);
        TakeUntil(next);
        EXPECT_EQ(m_numbers.size(), next);
        EXPECT_EQ(m_missed, 0U);
        m_clock.RunFreely(false);
        m_service.Do([](auto& service) { service.next = 5; });
    }
}

TEST_F(ActivityReaderTest, StopsReadingWhileNobodyTakesWhatCame) {
    m_service.next = 1'000'000;
    Start();
    std::size_t most = 0;
    while (m_numbers.size() < 30'000) {
        const std::size_t before = m_numbers.size();
        Take();
        most = std::max(most, m_numbers.size() - before);
    }
    EXPECT_LT(most, CActivityReader::kMostWaiting + 100);
    for (std::size_t i = 0; i < m_numbers.size(); ++i) ASSERT_EQ(m_numbers[i], i);
}

TEST_F(ActivityReaderTest, EndsAtOnceWhileItWaitsForTheServiceForRecordsOrForRoom) {
    Start();
    TakeUntil(5);
    m_reader.reset();  // it waited for records
    m_service.next = 1'000'000;
    Start();
    ASSERT_TRUE(WaitForAny({&m_reader->HasNews()}, kLong).IsOk());
    m_reader.reset();  // it had no room, or was about to have none
    m_service.isThere = false;
    EXPECT_TRUE(m_clock.PausesAfter([&] { Start(); }));
    m_reader.reset();
}

TEST(ActivityRow, SaysWhatTheRecordSays) {
    const auto module = CMessageModule::Load(std::string(QUORBEL_PROGRAMS) + "/TrcQBHTTPService.dll");
    ASSERT_TRUE(module.IsOk());
    const CTraceTexts texts(*module.Value());
    const auto row = [&](std::uint32_t id, std::initializer_list<std::string_view> arguments) {
        CTraceArgumentWriter writer;
        for (const std::string_view argument : arguments) writer.PutBytes(argument);
        const auto bytes = writer.Bytes();
        return MakeRow({7, 133'000'000'012'345'678, id, 0x55AA, {bytes.begin(), bytes.end()}}, "HTTP\tServer",
                       texts);
    };
    EXPECT_EQ(row(0xC00100CF, {"PUT", "/a\x1B[31m"}).text, "Method PUT refused for /a\\x1B[31m");
    EXPECT_EQ(row(0x00010000, {}).text, "Service starts");
    EXPECT_EQ(row(0x80012345, {"x"}).text, "0x80012345 \"x\"");  // no text
    EXPECT_EQ(row(0x000100CC, {}).object, "HTTP\\x09Server");
    const std::string umlaut = Details(row(0xC00100CF, {"m\xFCller", "m\xC3\xBCller"}));
    EXPECT_THAT(umlaut, ::testing::HasSubstr("Argument 1  \"m\xC3\xBCller\"\n"));  // an 8-bit text
    EXPECT_THAT(umlaut, ::testing::HasSubstr("Argument 2  \"m\xC3\xBCller\"\n"));

    CActivityRow damaged = row(0xC00100CF, {"PUT"});
    EXPECT_EQ(damaged.Severity(), ActivitySeverity::Error);
    const std::string details = Details(damaged);
    for (const char* part : {"Number      7\n", ".2345678 ", "Severity    Error\n", "(key 0x55AA)",
                             "Identifier  0xC00100CF\n", "Argument 1  \"PUT\"\n"})
        EXPECT_THAT(details, ::testing::HasSubstr(part));
    damaged.arguments.pop_back();
    EXPECT_THAT(Details(damaged), ::testing::HasSubstr("cannot be read"));
    EXPECT_EQ(TimeOfDay(damaged.time).substr(5), ":41.234");
}

}  // namespace
}  // namespace quorbel
