#include "LibService/MessageIds.h"
#include "LibService/ServiceLogger.h"
#include "platform/Text.h"

namespace quorbel {
namespace {

class CObject final : public CTraceLoggable {
 public:
    explicit CObject(const char* name) : m_name(name) {}
    const char* TraceName() const override { return m_name; }

 private:
    const char* const m_name;
};

class CObserver final : public ITraceObserver {
 public:
    void OnRecord(std::string_view object, std::wstring_view text) noexcept override {
        lines.emplace_back(std::wstring(object.begin(), object.end()) + L"|" + std::wstring(text));
    }
    std::vector<std::wstring> lines;
};

std::shared_ptr<const CMessageModule> Messages() {
    return CMessageModule::Parse(
               "FacilityNames=(One=1)\nMessageId=1\nSeverity=Error\nFacility=One\nLanguage=English\n%s1 "
               "%u2\n.\n")
        .Value();
}

constexpr std::uint32_t kId = 0xC0010001;

TEST(TraceLevelMask, SelectsByCategoryAndSeverity) {
    const std::tuple<std::uint32_t, std::uint32_t, bool, bool> cases[] = {
        {CTraceLevelMask::kDefault, 0x40010000, false, false},
        {CTraceLevelMask::kDefault, 0xC0010001, true, true},
        {CTraceLevelMask::kDefault, 0x00010000, true, false},
        {CTraceLevelMask::kDefault, 0x80080001, true, false},
        {CTraceLevelMask::kDefault, 0xC0000001, false, false},  // of no category
        {0, 0xC00F0001, false, false},
        {0xFFFF0000, 0xC0010001, false, true},
        {0x00000001, 0x00010001, true, false},
        {0x00000001, 0x00020001, false, false},
        {0x00000001, 0x00030001, true, false},
        {0x00000020, 0x40020001, true, false},
        {0x00008000, 0xC0080001, true, false},
        {0x80000000, 0xC0080001, false, true},
        {0x00001000, 0xC0080001, false, false},
    };
    for (const auto& [mask, id, keeps, saves] : cases) {
        EXPECT_EQ(CTraceLevelMask(mask).Keeps(id), keeps) << std::hex << mask << ' ' << id;
        EXPECT_EQ(CTraceLevelMask(mask).ForcesSaving(id), saves) << std::hex << mask << ' ' << id;
    }
}

TEST(ServiceLogger, KeepsTypedRecordsThatTheMaskLetsPass) {
    CServiceLogger logger;
    logger.SetMessages(Messages());
    const CObject object("HTTP Server");
    logger.Trace(object, 0x40010001, {L"informational", 1});
    logger.Trace(object, kId, {L"text", -1});
    logger.SetLevelMask(CTraceLevelMask(0));
    logger.Trace(object, kId, {L"dropped", 2});
    logger.SetLevelMask(CTraceLevelMask(0x0000F000));
    logger.TraceNoSave(object, kId, {L"kept", 3});

    EXPECT_EQ(logger.NextRecord(), 2U);
    const auto record = logger.Read(0);
    ASSERT_TRUE(record.has_value());
    EXPECT_EQ(record->number, 0U);
    EXPECT_EQ(record->id, kId);
    EXPECT_NE(record->time, 0U);
    EXPECT_EQ(DecodeArguments(record->arguments),
              (std::vector<TraceValue>{std::string("text"), std::uint64_t{0xFFFFFFFF}}));
    EXPECT_EQ(logger.Text(*record), L"text 4294967295");
    EXPECT_EQ(logger.Text(logger.Read(1).value()), L"kept 3");
    EXPECT_FALSE(logger.Read(2).has_value());
}

TEST(ServiceLogger, CarriesNoArgumentsWithoutATextAndReadsItOnceThereIsOne) {
    CServiceLogger logger;
    const CObject object("Object");
    logger.Trace(object, kId, {L"text", 1});
    EXPECT_TRUE(logger.Read(0)->arguments.empty());
    EXPECT_EQ(logger.Text(*logger.Read(0)), L"");
    logger.SetMessages(Messages());
    logger.Trace(object, kId, {L"text", 1});
    EXPECT_EQ(logger.Text(*logger.Read(1)), L"text 1");
    const CStatus status = logger.LoadMessages("/nowhere/module");
    ASSERT_FALSE(status.IsOk());
    EXPECT_EQ(status.Error()->GetCode(), 2U);
}

TEST(ServiceLogger, HasOneLoggedObjectForEveryName) {
    CServiceLogger logger;
    const CObject first("HTTP Server");
    const std::string sameName = "HTTP Server";
    const CObject second(sameName.c_str());
    const CObject other("Main");
    for (const CObject* object : {&first, &second, &other}) logger.Trace(*object, kId);
    EXPECT_EQ(logger.Read(0)->object, logger.Read(1)->object);
    EXPECT_NE(logger.Read(0)->object, logger.Read(2)->object);
    EXPECT_EQ(logger.ObjectName(logger.Read(1)->object), "HTTP Server");
    EXPECT_EQ(logger.ObjectName(logger.Read(2)->object), "Main");
    EXPECT_EQ(logger.ObjectName(0), std::nullopt);
}

TEST(ServiceLogger, LetsGoOfTheOldestRecordsInWholeFiles) {
    CServiceLogger logger;
    const CObject object("Object");
    EXPECT_EQ(logger.OldestRecord(), 0U);
    logger.SetRecordSpan(100);
    // Eight blocks of records of 5 and (at first) 8 bytes make a file.
    while (logger.OldestRecord() == 0) logger.Trace(object, kId);
    const std::uint64_t oldest = logger.OldestRecord();
    EXPECT_EQ(logger.NextRecord(), oldest + 1);
    EXPECT_FALSE(logger.Read(oldest - 1).has_value());
    EXPECT_EQ(logger.Read(oldest)->number, oldest);
    logger.SetRecordSpan(0);
    for (std::uint64_t i = 0; i < 2 * oldest; ++i) logger.Trace(object, kId);
    EXPECT_EQ(logger.OldestRecord(), oldest);
    EXPECT_EQ(logger.Read(3 * oldest)->number, 3 * oldest);
}

TEST(ServiceLogger, DropsARecordThatIsTooLargeWithoutANumber) {
    CServiceLogger logger;
    logger.SetMessages(Messages());
    const CObject object("Object");
    logger.Trace(object, kId, {std::wstring(kMostArgumentBytes, L'x')});
    EXPECT_EQ(logger.NextRecord(), 0U);
    logger.Trace(object, kId, {std::wstring(kMostArgumentBytes - 4, L'x'), 0});
    EXPECT_EQ(logger.Read(0)->arguments.size(), kMostArgumentBytes);
}

TEST(ServiceLogger, ShowsKeptRecordsToItsObserver) {
    CServiceLogger logger;
    logger.SetMessages(Messages());
    const auto observer = std::make_shared<CObserver>();
    const CObject object("Object");
    logger.Trace(object, kId, {L"before", 1});
    logger.SetObserver(observer);
    logger.Trace(object, kId, {L"kept", 2});
    logger.Trace(object, 0x40010001, {L"filtered", 3});
    logger.Trace(object, kId, {std::wstring(kMostArgumentBytes, L'x'), 4});
    logger.SetObserver(nullptr);
    logger.Trace(object, kId, {L"after", 5});
    EXPECT_THAT(observer->lines, testing::ElementsAre(L"Object|kept 2"));
}

TEST(ServiceLogger, NumbersTheRecordsOfAllThreadsWithoutAGap) {
    constexpr int kThreads = 4;
    constexpr int kRecords = 500;
    CServiceLogger logger;
    logger.SetMessages(Messages());
    const auto observer = std::make_shared<CObserver>();
    logger.SetObserver(observer);
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([&logger, thread] {
                const CObject object(thread % 2 == 0 ? "Even" : "Odd");
                for (int i = 0; i < kRecords; ++i) {
                    logger.Trace(object, kId, {std::to_wstring(thread), i});
                    logger.SetLevelMask(CTraceLevelMask());
                }
            });
        }
    }
    EXPECT_EQ(logger.NextRecord(), static_cast<std::uint64_t>(kThreads * kRecords));
    std::map<std::string, std::uint64_t> next;
    for (std::uint64_t number = 0; number < logger.NextRecord(); ++number) {
        const CTraceRecord record = logger.Read(number).value();
        const auto arguments = DecodeArguments(record.arguments).value();
        const std::uint64_t expected = next[std::get<std::string>(arguments[0])]++;
        EXPECT_EQ(logger.Text(record),
                  FromUtf8(std::get<std::string>(arguments[0])) + L' ' + std::to_wstring(expected));
    }
    EXPECT_EQ(observer->lines.size(), static_cast<std::size_t>(kThreads * kRecords));
}

}  // namespace
}  // namespace quorbel
