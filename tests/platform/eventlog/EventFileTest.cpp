#include <fcntl.h>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "platform/eventlog/EventFile.h"
#include "platform/eventlog/EventSink.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

CEventEntry NumberedEntry(std::uint32_t number) {
    CEventEntry entry;
    entry.time = 133'801'632'000'000'000 + number;
    entry.id = number;
    entry.strings = {L"insert"};
    return entry;
}

TEST(EventFile, BeginsAnewBeforeALineWouldPassTheLimitAndKeepsOnePredecessor) {
    const CTemporaryFolder folder;
    CEventFile file(folder.Path(), {.limit = 20});
    for (const char* line : {"first 678", "second 89", "third 678", "a line longer than the limit", "last"})
        EXPECT_EQ(file.Append(line), ErrorCode::Success);
    EXPECT_EQ(ReadFile(folder / kPreviousEventFile), "a line longer than the limit\n");
    EXPECT_EQ(ReadFile(folder / kEventFile), "last\n");

    const CTemporaryFolder other;
    CEventFile exact(other.Path(), {.limit = 20});
    for (const char* line : {"first 678", "second 89", "third"})
        EXPECT_EQ(exact.Append(line), ErrorCode::Success);
    EXPECT_EQ(ReadFile(other / kPreviousEventFile), "first 678\nsecond 89\n");
    EXPECT_EQ(ReadFile(other / kEventFile), "third\n");
}

TEST(EventFile, TakesBackALineThatTheDiskHasNoRoomFor) {
    const CTemporaryFolder folder;
    std::size_t room = 12;
    CEventFile file(folder.Path(), {.write = [&room](int descriptor, const void* bytes, std::size_t length) {
                        if (room == 0) {
                            errno = ENOSPC;
                            return ssize_t{-1};
                        }
                        const std::size_t part = std::min(room, length);
                        room -= part;
                        return ::write(descriptor, bytes, part);
                    }});
    EXPECT_EQ(file.Append("kept"), ErrorCode::Success);
    EXPECT_EQ(file.Append("does not fit"), ErrorCode::DiskFull);  // half of it was written
    EXPECT_EQ(ReadFile(folder / kEventFile), "kept\n");
    EXPECT_EQ(file.Append("nor this"), ErrorCode::DiskFull);
    EXPECT_EQ(ReadFile(folder / kEventFile), "kept\n");
    room = 100;
    EXPECT_EQ(file.Append("again"), ErrorCode::Success);
    EXPECT_EQ(ReadFile(folder / kEventFile), "kept\nagain\n");
}

TEST(EventFile, TriesAgainWhenASignalInterruptsTheWrite) {
    const CTemporaryFolder folder;
    int interruptions = 3;
    CEventFile file(folder.Path(), {.write = [&](int descriptor, const void* bytes, std::size_t length) {
                        if (interruptions-- <= 0) return ::write(descriptor, bytes, length);
                        errno = EINTR;
                        return ssize_t{-1};
                    }});
    EXPECT_EQ(file.Append("line"), ErrorCode::Success);
    EXPECT_EQ(ReadFile(folder / kEventFile), "line\n");
}

TEST(EventFile, EndsALineThatWasLeftHalfWritten) {
    const CTemporaryFolder folder;
    WriteFile(folder / kEventFile, "{\"time\":\"20");
    EXPECT_EQ(CEventFile(folder.Path()).Append("whole"), ErrorCode::Success);
    EXPECT_EQ(ReadFile(folder / kEventFile), "{\"time\":\"20\nwhole\n");
}

TEST(EventFile, IsReadableByTheGroupAndNobodyElse) {
    const CTemporaryFolder folder;
    const mode_t before = ::umask(0077);
    EXPECT_EQ(CEventFile(folder.Path()).Append("line"), ErrorCode::Success);
    ::umask(before);
    struct stat status {};
    ASSERT_EQ(::stat((folder / kEventFile).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST(EventFile, GivesUpOnALockThatIsNeverReleased) {
    const CTemporaryFolder folder;
    const CFileDescriptor other(::open((folder / kEventFile).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640));
    ASSERT_EQ(::flock(other.Get(), LOCK_EX), 0);
    CEventFile file(folder.Path(), {.patience = std::chrono::milliseconds(1)});
    EXPECT_EQ(file.Append("line"), ErrorCode::Busy);
}

TEST(EventFile, FailsWithoutItsFolderAndOnWhatIsNoFile) {
    const CTemporaryFolder folder;
    EXPECT_EQ(CEventFile(folder / "missing").Append("line"), ErrorCode::FileNotFound);
    ASSERT_EQ(::mkfifo((folder / kEventFile).c_str(), 0600), 0);
    EXPECT_EQ(CEventFile(folder.Path()).Append("line"), ErrorCode::BadFileType);
}

/// Appends numbered lines and leaves the process.
[[noreturn]] void AppendInChild(const std::filesystem::path& folder, int writer, int count) {
    CEventFile file(folder, {.limit = 2000, .patience = std::chrono::minutes(1)});
    for (int i = 0; i < count; ++i) {
        if (file.Append(std::to_string(writer) + " " + std::to_string(i)) != ErrorCode::Success) ::_exit(1);
    }
    ::_exit(0);
}

TEST(EventFile, LosesNoLineBetweenProcessesThatRotateIt) {
    constexpr int kWriters = 4;
    constexpr int kLines = 150;  // together more than one file takes, but less than two
    const CTemporaryFolder folder;
    std::vector<pid_t> writers;
    for (int writer = 0; writer < kWriters; ++writer) {
        const pid_t process = ::fork();
        ASSERT_GE(process, 0);
        if (process == 0) AppendInChild(folder.Path(), writer, kLines);
        writers.push_back(process);
    }
    for (pid_t process : writers) {
        int status = 0;
        ASSERT_EQ(::waitpid(process, &status, 0), process);
        EXPECT_EQ(status, 0);
    }
    CEventFile full(folder.Path(), {.limit = 2000});
    while (!std::filesystem::exists(folder / kPreviousEventFile))
        ASSERT_EQ(full.Append("x"), ErrorCode::Success);

    std::istringstream lines(ReadFile(folder / kPreviousEventFile) + ReadFile(folder / kEventFile));
    std::array<int, kWriters> next{};
    int writer = 0;
    int number = 0;
    while (lines >> writer >> number) {
        ASSERT_TRUE(writer >= 0 && writer < kWriters);
        EXPECT_EQ(number, next[static_cast<std::size_t>(writer)]++);
    }
    EXPECT_THAT(next, testing::Each(kLines));
}

TEST(EventFiles, AreReadOldestFirstWithoutTheirDamagedLines) {
    const CTemporaryFolder folder;
    EXPECT_TRUE(ReadEventFiles(folder.Path()).empty());
    WriteFile(folder / kPreviousEventFile,
              ToJsonLine(NumberedEntry(1)) + "\n{\"time\":\n\n" + ToJsonLine(NumberedEntry(2)) + "\n");
    const auto sink = CreateFileSink(folder.Path(), EventEcho::None);
    sink->Write(NumberedEntry(3));
    sink->Write(NumberedEntry(4));
    std::vector<std::uint32_t> identifiers;
    for (const CEventEntry& entry : ReadEventFiles(folder.Path())) identifiers.push_back(entry.id);
    EXPECT_THAT(identifiers, testing::ElementsAre(1, 2, 3, 4));
}

TEST(EventSink, EchoesOneLineThatCannotPlayTricksOnATerminal) {
    const CTemporaryFolder folder;
    CEventEntry entry = NumberedEntry(0xC00000C9);
    entry.text = L"a\r\nb\x1B[2J\x9B\x202E";
    entry.source = "File.cpp";
    entry.line = 12;
    testing::internal::CaptureStderr();
    CreateFileSink(folder.Path(), EventEcho::StandardError)->Write(entry);
    const std::string echo = testing::internal::GetCapturedStderr();
    EXPECT_THAT(echo,
                testing::EndsWith(" error 0xC00000C9 a\\x0D\\x0Ab\\x1B[2J\\x9B\\u202E (File.cpp 12)\n"));
}

TEST(EventSink, DropsWhatStandardErrorDoesNotTakeAndKeepsItInTheFile) {
    const CTemporaryFolder folder;
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const CFileDescriptor reader(ends[0]);
    const CFileDescriptor before(::dup(STDERR_FILENO));
    {
        const CFileDescriptor writer(ends[1]);
        ASSERT_EQ(::dup2(writer.Get(), STDERR_FILENO), STDERR_FILENO);
    }
    constexpr std::uint32_t kEntries = 200;  // of 4 KiB: far more than a pipe takes
    {
        const auto sink = CreateFileSink(folder.Path(), EventEcho::StandardError);
        std::vector<std::jthread> writers;
        for (std::uint32_t writer = 0; writer < 2; ++writer) {
            writers.emplace_back([&] {
                CEventEntry entry = NumberedEntry(1);
                entry.text = std::wstring(5000, L'x');
                for (std::uint32_t i = 0; i < kEntries / 2; ++i) sink->Write(entry);
            });
        }
    }
    ASSERT_EQ(::dup2(before.Get(), STDERR_FILENO), STDERR_FILENO);
    EXPECT_EQ(ReadEventFiles(folder.Path()).size(), kEntries);
}

TEST(Process, IsTheServiceManagersOnlyWhenItIsNamedExactly) {
    const std::string self = std::to_string(::getpid());
    const std::pair<std::string, bool> cases[] = {{self, true},        {self + "0", false},
                                                  {" " + self, false}, {"0" + self, false},
                                                  {"", false},         {"1", false}};
    for (const auto& [value, expected] : cases) {
        ::setenv("SYSTEMD_EXEC_PID", value.c_str(), 1);
        EXPECT_EQ(StartedByServiceManager(), expected) << value;
    }
    ::unsetenv("SYSTEMD_EXEC_PID");
    EXPECT_FALSE(StartedByServiceManager());
}

}  // namespace
}  // namespace quorbel
