#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/TemporaryFolder.h"
#include "tools/minidump/DumpArguments.h"
#include "tools/minidump/DumpFile.h"
#include "tools/minidump/ProcessMemory.h"

namespace quorbel {
namespace {

std::variant<CDumpArguments, std::string> Parse(std::vector<std::string> texts) {
    std::vector<char*> arguments;
    for (std::string& text : texts) arguments.push_back(text.data());
    return CDumpArguments::Parse(arguments);
}

TEST(MiniDumpArguments, AreTakenInAnyOrder) {
    const auto parsed = Parse({"-f", "/tmp/a b.dmp", "-e", "0x00007F00DEADBEE0", "-t", "1A2C", "-p", "3F0"});
    ASSERT_TRUE(std::holds_alternative<CDumpArguments>(parsed)) << std::get<std::string>(parsed);
    const auto& arguments = std::get<CDumpArguments>(parsed);
    EXPECT_EQ(arguments.process, 0x3F0U);
    EXPECT_EQ(arguments.thread, 0x1A2CU);
    EXPECT_EQ(arguments.record, 0x7F00DEADBEE0U);
    EXPECT_EQ(arguments.file, "/tmp/a b.dmp");
}

TEST(MiniDumpArguments, ThatAreWrongAreNamed) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> kWrong{
        {{}, "-p is missing"},
        {{"-p", "1", "-t", "1", "-e", "0x0"}, "-f is missing"},
        {{"-p"}, "-p lacks its value"},
        {{"-p", "0"}, "\"0\" is no value of -p"},
        {{"-p", "1G"}, "\"1G\" is no value of -p"},
        {{"-p", "123456789"}, "\"123456789\" is no value of -p"},
        {{"-e", "0"}, "\"0\" is no value of -e"},
        {{"-e", "0x"}, "\"0x\" is no value of -e"},
        {{"-f", "/tmp/"}, "\"/tmp/\" is no value of -f"},
        {{"-p", "1", "-p", "1"}, "unexpected argument \"-p\""},
        {{"-x", "1"}, "unexpected argument \"-x\""},
        {{"process"}, "unexpected argument \"process\""},
    };
    for (const auto& [arguments, message] : kWrong) {
        const auto parsed = Parse(arguments);
        ASSERT_TRUE(std::holds_alternative<std::string>(parsed)) << message;
        EXPECT_EQ(std::get<std::string>(parsed), message);
    }
}

TEST(MiniDumpFile, KnowsTheServiceOfADump) {
    const std::vector<std::pair<std::string, std::optional<std::string>>> kNames{
        {"My ServiceC000000520260131120000.dmp", "My Service"},
        {"My ServiceC000000520260131120000-2.dmp", "My Service"},
        {"CafeC000000520260131120000.dmp", "Cafe"},
        {"A-BInvalidParameter20260131120000.dmp", "A-B"},
        {"My Service20260131120000.dmp", std::nullopt},
        {"My ServiceC00000052026013112000.dmp", std::nullopt},
        {"My ServiceC000000520260131120000.dmp.partial", std::nullopt},
        {".dmp", std::nullopt},
    };
    for (const auto& [name, service] : kNames) EXPECT_EQ(CDumpFile::ServiceOf(name), service) << name;
}

TEST(MiniDumpFile, KeepsTheNewestOfItsServiceAndOverwritesNone) {
    CTemporaryFolder folder;
    const auto now = std::filesystem::file_time_type::clock::now();
    const auto name = [&](int day) {
        return folder / ("ServiceC0000005202601" + std::to_string(10 + day) + "120000.dmp");
    };
    for (int day = 0; day != 10; ++day) {
        WriteFile(name(day), "old");
        std::filesystem::last_write_time(name(day), now - std::chrono::hours(24 * (100 - day)));
    }
    WriteFile(folder / "OtherC000000520250101120000.dmp", "");
    WriteFile(folder / "events.jsonl", "");
    {
        auto file = CDumpFile::Create(name(9));
        ASSERT_TRUE(file.IsOk());
        EXPECT_EQ(file.Value().Complete(), ErrorCode::Success);
    }
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path()))
        left.push_back(entry.path().filename());
    EXPECT_EQ(left.size(), CDumpFile::kKept + 2);
    EXPECT_THAT(left, testing::Not(testing::Contains(name(2).filename().native())));
    EXPECT_THAT(left, testing::Contains(name(3).filename().native()));
    EXPECT_THAT(left, testing::Contains("ServiceC000000520260119120000-2.dmp"));
    EXPECT_EQ(ReadFile(name(9)), "old");
}

TEST(MiniDumpFile, IsKeptWhenTheOthersAreFromTheFuture) {
    CTemporaryFolder folder;
    const auto later = std::filesystem::file_time_type::clock::now() + std::chrono::hours(24);
    for (int day = 10; day != 18; ++day) {
        const auto name = folder / ("ServiceC0000005202701" + std::to_string(day) + "120000.dmp");
        WriteFile(name, "");
        std::filesystem::last_write_time(name, later + std::chrono::hours(day));
    }
    const auto written = folder / "ServiceC000000520260131120000.dmp";
    auto file = CDumpFile::Create(written);
    ASSERT_TRUE(file.IsOk());
    ASSERT_EQ(file.Value().Complete(), ErrorCode::Success);
    EXPECT_TRUE(std::filesystem::exists(written));
    EXPECT_FALSE(std::filesystem::exists(folder / "ServiceC000000520270110120000.dmp"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path()), {}),
              static_cast<std::ptrdiff_t>(CDumpFile::kKept));
}

TEST(MiniDumpFile, RemovesWhatAKilledHelperLeftAndNothingThatIsBeingWritten) {
    CTemporaryFolder folder;
    const auto stale = folder / "ServiceC000000520260101120000.dmp.partial";
    const auto own = folder / "ServiceC000000520260131120000.dmp.partial";
    const auto other = folder / "OtherC000000520260101120000.dmp.partial";
    for (const auto& path : {stale, own, other}) WriteFile(path, "left");
    const auto first = CDumpFile::Create(folder / "ServiceC000000520260131120000.dmp");
    ASSERT_TRUE(first.IsOk());
    EXPECT_FALSE(std::filesystem::exists(stale));
    EXPECT_EQ(ReadFile(own), "") << "its own, made anew";
    EXPECT_TRUE(std::filesystem::exists(other));
    const auto second = CDumpFile::Create(folder / "ServiceC000000520260131120001.dmp");
    ASSERT_TRUE(second.IsOk());
    EXPECT_TRUE(std::filesystem::exists(own));
    const auto same = CDumpFile::Create(folder / "ServiceC000000520260131120000.dmp");
    ASSERT_FALSE(same.IsOk());
    EXPECT_EQ(same.Error(), ErrorCode::AlreadyExists);
}

TEST(MiniDumpFile, LeavesNothingOfADumpThatIsNotCompleted) {
    CTemporaryFolder folder;
    {
        const auto file = CDumpFile::Create(folder / "ServiceC000000520260131120000.dmp");
        ASSERT_TRUE(file.IsOk());
        ASSERT_FALSE(std::filesystem::is_empty(folder.Path()));
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
}

TEST(MiniDumpMappings, AreReadWithWhatTheyHold) {
    const auto mappings = ParseMappings(
        "00400000-00452000 r-xp 00001000 08:02 173521      /usr/bin/a b\n"
        "Size:                328 kB\nAnonymous:             0 kB\nVmFlags: rd ex mr mw me\n"
        "7f0000000000-7f0000100000 rw-p 00000000 00:00 0 \n"
        "Anonymous:            12 kB\nVmFlags: rd wr mr mw me dd\n"
        "7f0000200000-7f0000201000 rw-s 00000000 00:01 5    /dev/shm/x (deleted)\n"
        "no such line\n"
        "ffffffffff600000-ffffffffff601000 --xp 00000000 00:00 0                  [vsyscall]");
    ASSERT_EQ(mappings.size(), 4U);
    EXPECT_EQ(mappings[0].begin, 0x400000U);
    EXPECT_EQ(mappings[0].end, 0x452000U);
    EXPECT_EQ(mappings[0].offset, 0x1000U);
    EXPECT_EQ(mappings[0].path, "/usr/bin/a b");
    EXPECT_TRUE(mappings[0].isReadable && mappings[0].isExecutable && mappings[0].IsOfFile());
    EXPECT_FALSE(mappings[0].isWritable || mappings[0].isChanged || mappings[0].isKeptOut);
    EXPECT_TRUE(mappings[1].isWritable && mappings[1].isChanged && mappings[1].isKeptOut);
    EXPECT_EQ(mappings[1].path, "");
    EXPECT_TRUE(mappings[2].isShared);
    EXPECT_EQ(mappings[3].path, "[vsyscall]");
}

}  // namespace
}  // namespace quorbel
