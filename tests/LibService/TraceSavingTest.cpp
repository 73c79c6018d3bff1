#include <fstream>
#include <regex>
#include <signal.h>
#include <sys/resource.h>

#include "LibService/MessageIds.h"
#include "LibService/ServiceLogger.h"
#include "tests/LibService/trace/TraceFileDecoder.h"
#include "tests/support/EventRecorder.h"
#include "tests/support/HandClock.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

constexpr std::uint32_t kSuccess = 0x00010000;
constexpr std::uint32_t kWarning = 0x80010000;
constexpr std::uint32_t kError = 0xC0010000;

/// The files of a folder, by name.
std::map<std::string, CDecodedFile> Files(const std::filesystem::path& folder) {
    std::map<std::string, CDecodedFile> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        files[entry.path().filename()] = DecodeTraceFile(bytes);
    }
    return files;
}

class TraceSaving : public testing::Test, public CTraceLoggable {
 public:
    const char* TraceName() const override { return "Object"; }

 protected:
    /// Waits until the thread that saves has come to its pause, or back to it.
    void SavedAfter(const std::function<void()>& change) { EXPECT_TRUE(m_clock.PausesAfter(change)); }

    CTemporaryFolder m_root;
    const std::filesystem::path m_folder = m_root.Path() / "QuorbelLog";
    CHandClock m_clock;
};

TEST_F(TraceSaving, SavesWhatLedUpToAnError) {
    CServiceLogger logger("QBHTTPService", m_clock);
    ASSERT_TRUE(logger.StartSaving(m_folder).IsOk());
    for (int i = 0; i < 5000; ++i) logger.Trace(*this, kSuccess);
    logger.TraceNoSave(*this, kError);
    ASSERT_TRUE(logger.Save().IsOk());
    EXPECT_FALSE(std::filesystem::exists(m_folder));
    SavedAfter([&] { logger.Trace(*this, kError); });
    const auto files = Files(m_folder);
    ASSERT_EQ(files.size(), 1U);
    const std::string& name = files.begin()->first;
    EXPECT_TRUE(std::regex_match(name, std::regex("QBHTTPService[0-9]{14}0001\\.QBT"))) << name;
    const CDecodedFile& file = files.begin()->second;
    EXPECT_THAT(file.strings, testing::ElementsAre("Object", "ServiceName::QBHTTPService"));
    // The buffers that hold the last thousand records, whole.
    EXPECT_GT(file.records.front().number, 0U);
    EXPECT_LE(file.records.front().number, 5002U - 1000);
    EXPECT_EQ(file.records.back().number, 5001U);
    EXPECT_EQ(file.records.back().id, kError);
}

TEST_F(TraceSaving, SavesWhatIsOnlyMarkedWhenItsTurnComesAndAtTheEnd) {
    {
        CServiceLogger logger("Service", m_clock);
        logger.SetLevelMask(CTraceLevelMask(0xFFFFFFFF));
        ASSERT_TRUE(logger.StartSaving(m_folder).IsOk());
        logger.Trace(*this, kSuccess);  // forces saving, but is no warning and no error
        logger.Trace(*this, 0x40010000);
        EXPECT_FALSE(std::filesystem::exists(m_folder));
        SavedAfter([&] { logger.Trace(*this, kWarning); });
        EXPECT_EQ(Files(m_folder).begin()->second.records.size(), 3U);
        logger.Trace(*this, kSuccess);
    }
    EXPECT_EQ(Files(m_folder).begin()->second.records.size(), 4U);
}

TEST_F(TraceSaving, SavesADroppedFileThatWasMarked) {
    CServiceLogger logger("Service", m_clock);
    logger.SetRecordSpan(1);
    logger.SetLevelMask(CTraceLevelMask(0x000FFFFF));
    ASSERT_TRUE(logger.StartSaving(m_folder).IsOk());
    logger.Trace(*this, kSuccess);  // marked
    logger.SetLevelMask(CTraceLevelMask(0x0000FFFF));
    SavedAfter([&] {
        while (logger.OldestRecord() == 0) logger.Trace(*this, kSuccess);
    });
    const auto files = Files(m_folder);
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files.begin()->second.blocks, std::vector<std::uint64_t>{0});
}

/// A clock by which everything takes a second.
class CSlowWorldClock final : public IClock {
 public:
    explicit CSlowWorldClock(CHandClock& clock) : m_clock(clock) {}
    std::chrono::nanoseconds Steady() const override {
        m_clock.Turn(std::chrono::seconds(1));
        return m_clock.Steady();
    }
    std::uint64_t System() const override { return m_clock.System(); }
    void Pause(std::chrono::milliseconds duration, CEvent& wake) override { m_clock.Pause(duration, wake); }

 private:
    CHandClock& m_clock;
};

TEST_F(TraceSaving, SharesOneWriteAmongErrorsThatComeMeanwhile) {
    CSlowWorldClock slow(m_clock);
    m_clock.RunFreely(false);
    CServiceLogger logger("Service", slow);
    ASSERT_TRUE(logger.StartSaving(m_folder).IsOk());
    const auto saved = [this] { return Files(m_folder).begin()->second.records.size(); };
    SavedAfter([&] { logger.Trace(*this, kError); });
    for (int i = 0; i < 1000; ++i) logger.Trace(*this, kError);
    EXPECT_EQ(saved(), 1U);  // in its pause
    SavedAfter([&] { m_clock.Turn(std::chrono::seconds(1)); });
    EXPECT_EQ(saved(), 1001U);
}

TEST_F(TraceSaving, SavesWhenItIsAskedToFromWhereNothingMayWait) {
    CServiceLogger logger("Service", m_clock);
    logger.SaveLastRecordsSoon();
    ASSERT_TRUE(logger.StartSaving(m_folder).IsOk());
    logger.Trace(*this, kSuccess);
    SavedAfter([&] { logger.SaveLastRecordsSoon(); });
    EXPECT_EQ(Files(m_folder).begin()->second.records.size(), 1U);
}

TEST_F(TraceSaving, KeepsTheNewestFilesAndNoRunReplacesAnothers) {
    std::filesystem::create_directory(m_folder);
    const auto make = [this](const std::string& name) { std::ofstream(m_folder / name) << "old"; };
    for (std::size_t i = 0; i < CTraceFolder::kMostFiles; ++i)
        make("Service" + std::to_string(20000101000000 + i) + "0001.QBT");
    for (const char* const other : {"Servicex200001010000000001.QBT", "Service20000101.QBT", "Other.QBT"})
        make(other);
    std::set<std::string> names;
    for (int run = 0; run < 2; ++run) {
        CServiceLogger logger("Service", m_clock);
        ASSERT_TRUE(logger.StartSaving(m_folder).IsOk());
        logger.Trace(*this, kSuccess);
        ASSERT_TRUE(logger.SaveLastRecords().IsOk());
    }
    for (const auto& entry : std::filesystem::directory_iterator(m_folder))
        names.insert(entry.path().filename());
    EXPECT_EQ(names.size(), CTraceFolder::kMostFiles + 3);
    EXPECT_FALSE(names.contains("Service200001010000000001.QBT"));
    EXPECT_FALSE(names.contains("Service200001010000010001.QBT"));
    EXPECT_TRUE(names.contains("Service200001010000020001.QBT"));
}

TEST_F(TraceSaving, ReportsAFolderThatCannotBeWrittenOnceAndTriesAgain) {
    CRecordedEventLog events;
    std::ofstream(m_folder) << "no folder";
    CServiceLogger logger("Service", m_clock);
    ASSERT_TRUE(logger.StartSaving(m_folder).IsOk());
    for (int i = 0; i < 3; ++i) SavedAfter([&] { logger.Trace(*this, kError); });
    const auto reported = events.Take();
    ASSERT_EQ(reported.size(), 1U);
    EXPECT_EQ(reported[0].id, message::kSystemErrorWithText);
    EXPECT_FALSE(logger.Save().IsOk());
    std::filesystem::remove(m_folder);
    EXPECT_TRUE(logger.Save().IsOk());
    EXPECT_EQ(Files(m_folder).begin()->second.records.size(), 3U);
    EXPECT_EQ(Files(m_folder).size(), 1U);
}

TEST_F(TraceSaving, KeepsTheOldFileWhenTheDiskIsFull) {
    CServiceLogger logger("Service", m_clock);
    ASSERT_TRUE(logger.StartSaving(m_folder).IsOk());
    SavedAfter([&] { logger.Trace(*this, kError); });
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit none{10, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &none), 0);
    EXPECT_FALSE(logger.SaveLastRecords().IsOk());
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(Files(m_folder).size(), 1U);
    EXPECT_EQ(Files(m_folder).begin()->second.records.size(), 1U);
    EXPECT_TRUE(logger.SaveLastRecords().IsOk());
}

TEST_F(TraceSaving, TellsEveryoneWhoWaitsThatARecordArrived) {
    CServiceLogger logger;
    logger.Trace(*this, kSuccess);
    EXPECT_EQ(logger.RecordArrives(0).Value(), nullptr);
    const auto first = logger.RecordArrives(1).Value();
    const auto second = logger.RecordArrives(1).Value();
    EXPECT_FALSE(first->Test());
    logger.Trace(*this, kSuccess);
    EXPECT_TRUE(first->Test() && second->Test());
    EXPECT_FALSE(logger.RecordArrives(2).Value()->Test());
}

}  // namespace
}  // namespace quorbel
