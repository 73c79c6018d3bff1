#include <fcntl.h>
#include <sstream>
#include <unistd.h>

#include "LibService/ConsoleEcho.h"
#include "platform/FileDescriptor.h"

namespace quorbel {
namespace {

struct CPipe {
    CPipe() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        read = CFileDescriptor(ends[0]);
        write = CFileDescriptor(ends[1]);
    }
    CFileDescriptor read;
    CFileDescriptor write;
};

/// Reads until the text ends as wanted; the test's time limit ends a wait for what never comes.
std::string ReadUntil(const CFileDescriptor& descriptor,
                      const std::function<bool(const std::string&)>& complete) {
    std::string text;
    std::array<char, 4096> buffer{};
    while (!complete(text)) {
        const ssize_t count = ::read(descriptor.Get(), buffer.data(), buffer.size());
        if (count <= 0) return text;
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return text;
}

struct CCount {
    std::size_t printed = 0;
    std::size_t dropped = 0;
    std::size_t Sum() const { return printed + dropped; }
};

/// Counts the whole lines of records, and what the other lines say was dropped.
CCount CountLines(const std::string& text) {
    CCount count;
    std::istringstream lines(text.substr(0, text.rfind('\n') + 1));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("O: ")) ++count.printed;
        if (line.starts_with("(")) count.dropped += std::stoul(line.substr(1));
    }
    return count;
}

TEST(ConsoleEcho, PrintsALineForEachRecordWithoutLettingItPlayTricks) {
    const CPipe pipe;
    const auto echo = CConsoleEcho::Create(pipe.write.Get()).Value();
    echo->OnRecord("HTTP Server", L"1.1 GET /caf\u00e9");
    echo->OnRecord("HTTP Server", L"\x1B[2J\r\nMain: forged\x85\x202E");
    echo->OnRecord("Main", L"end");
    EXPECT_EQ(ReadUntil(pipe.read, [](const std::string& text) { return text.ends_with("end\n"); }),
              "HTTP Server: 1.1 GET /caf\xC3\xA9\n"
              "HTTP Server: \\x1B[2J\\x0D\\x0AMain: forged\\x85\\u202E\n"
              "Main: end\n");
}

TEST(ConsoleEcho, DropsAndCountsLinesThatAReaderDoesNotTake) {
    const CPipe pipe;
    const auto echo = CConsoleEcho::Create(pipe.write.Get()).Value();
    const std::wstring text(200, L'x');
    constexpr std::size_t kRecords = 5000;  // more than the pipe and the queue hold together
    for (std::size_t i = 0; i < kRecords; ++i) echo->OnRecord("O", text);

    const std::string output =
        ReadUntil(pipe.read, [](const std::string& read) { return CountLines(read).Sum() >= kRecords; });
    const CCount count = CountLines(output);
    EXPECT_EQ(count.Sum(), kRecords);
    EXPECT_GT(count.dropped, 0U);

    echo->OnRecord("Main", L"end");
    EXPECT_EQ(ReadUntil(pipe.read, [](const std::string& read) { return read.ends_with("\n"); }),
              "Main: end\n");
}

TEST(ConsoleEcho, EndsWhileAReaderDoesNotRead) {
    const CPipe pipe;
    auto echo = CConsoleEcho::Create(pipe.write.Get()).Value();
    const std::wstring text(200, L'x');
    for (int i = 0; i < 1000; ++i) echo->OnRecord("O", text);
    echo = nullptr;
    // The pipe itself must have been left as others use it.
    EXPECT_EQ(::fcntl(pipe.write.Get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(ConsoleEcho, PrintsWhatIsQueuedBeforeItEnds) {
    CPipe pipe;
    auto echo = CConsoleEcho::Create(pipe.write.Get()).Value();
    echo->OnRecord("Main", L"last words");
    echo = nullptr;
    pipe.write = CFileDescriptor();
    EXPECT_EQ(ReadUntil(pipe.read, [](const std::string&) { return false; }), "Main: last words\n");
}

TEST(ConsoleEcho, SurvivesAReaderThatGoesAway) {
    CPipe pipe;
    auto echo = CConsoleEcho::Create(pipe.write.Get()).Value();
    { const CFileDescriptor gone = std::move(pipe.read); }
    for (int i = 0; i < 10; ++i) echo->OnRecord("Main", L"nobody reads");
    echo = nullptr;
    // A broken pipe must not end the process.
    EXPECT_EQ(::fcntl(pipe.write.Get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST(ConsoleEcho, IsNotCreatedWithoutAnOpenDescriptor) {
    EXPECT_FALSE(CConsoleEcho::Create(-1).IsOk());
}

}  // namespace
}  // namespace quorbel
