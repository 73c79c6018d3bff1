#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/Terminal.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

/// What a program may find as its output, and the end that reads it.
struct COutput {
    const char* name;
    CFileDescriptor read;
    CFileDescriptor write;
};

std::vector<COutput> PipeAndSocket() {
    int pipe[2] = {-1, -1};
    int sockets[2] = {-1, -1};
    EXPECT_EQ(::pipe2(pipe, O_CLOEXEC), 0);
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets), 0);
    std::vector<COutput> outputs;
    outputs.push_back({"pipe", CFileDescriptor(pipe[0]), CFileDescriptor(pipe[1])});
    outputs.push_back({"socket", CFileDescriptor(sockets[0]), CFileDescriptor(sockets[1])});
    return outputs;
}

std::shared_ptr<CEvent> NewStop() {
    return CEvent::Create(EventReset::Manual).Value();
}

/// Writes on a thread of its own: the thread that writes has SIGPIPE blocked from then on.
ErrorCode Write(CTerminalWriter& writer, std::string_view bytes, CEvent& stop) {
    ErrorCode written = ErrorCode::InternalError;
    std::thread([&] { written = writer.Write(bytes, stop); }).join();
    return written;
}

TEST(TerminalWriter, WritesToAFileWhereItsOtherUsersAre) {
    const CTemporaryFolder folder;
    const auto stop = NewStop();
    for (const int flags : {O_APPEND, O_TRUNC}) {
        const auto path = folder / "log";
        std::ofstream(path) << (flags == O_APPEND ? "old\n" : "removed\n");
        const CFileDescriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC | flags));
        ASSERT_EQ(::write(file.Get(), "shell\n", 6), 6);
        const auto writer = CTerminalWriter::Open(file.Get()).Value();
        EXPECT_EQ(Write(*writer, "service\n", *stop), ErrorCode::Success);
        ASSERT_EQ(::write(file.Get(), "shell\n", 6), 6);
        std::ostringstream content;
        content << std::ifstream(path).rdbuf();
        const std::string old = flags == O_APPEND ? "old\n" : "";
        EXPECT_EQ(content.str(), old + "shell\nservice\nshell\n");
    }
}

TEST(TerminalWriter, WritesWithoutWaitingAndLeavesTheDescriptorAsOthersUseIt) {
    const auto stop = NewStop();
    for (const COutput& output : PipeAndSocket()) {
        const auto writer = CTerminalWriter::Open(output.write.Get()).Value();
        EXPECT_EQ(Write(*writer, "line\n", *stop), ErrorCode::Success) << output.name;
        std::array<char, 16> buffer{};
        EXPECT_EQ(::read(output.read.Get(), buffer.data(), buffer.size()), 5) << output.name;
        EXPECT_STREQ(buffer.data(), "line\n") << output.name;

        stop->Set();
        const std::string more(std::size_t{4} << 20, 'x');  // than anything holds that nobody reads
        EXPECT_EQ(Write(*writer, more, *stop), ErrorCode::Cancelled) << output.name;
        EXPECT_EQ(::fcntl(output.write.Get(), F_GETFL) & O_NONBLOCK, 0) << output.name;
        stop->Clear();
    }
}

TEST(TerminalWriter, GoesOnWhenTheReaderReads) {
    const auto stop = NewStop();
    const std::string text(std::size_t{4} << 20, 'x');
    for (const COutput& output : PipeAndSocket()) {
        const auto writer = CTerminalWriter::Open(output.write.Get()).Value();
        ErrorCode written = ErrorCode::InternalError;
        std::thread thread([&] { written = writer->Write(text, *stop); });
        std::size_t arrived = 0;
        std::array<char, 65536> buffer{};
        while (arrived < text.size()) {
            const ssize_t count = ::read(output.read.Get(), buffer.data(), buffer.size());
            if (count <= 0) break;
            arrived += static_cast<std::size_t>(count);
        }
        stop->Set();  // ends the writer should the reader have failed
        thread.join();
        stop->Clear();
        EXPECT_EQ(arrived, text.size()) << output.name;
        EXPECT_EQ(written, ErrorCode::Success) << output.name;
    }
}

TEST(TerminalWriter, SaysThatNobodyReadsAnyMore) {
    const auto stop = NewStop();
    for (COutput& output : PipeAndSocket()) {
        const auto before = CTerminalWriter::Open(output.write.Get()).Value();
        { const CFileDescriptor gone = std::move(output.read); }
        const auto after = CTerminalWriter::Open(output.write.Get()).Value();
        EXPECT_EQ(Write(*before, "x", *stop), ErrorCode::BrokenPipe) << output.name;
        EXPECT_EQ(Write(*after, "x", *stop), ErrorCode::BrokenPipe) << output.name;
    }
    EXPECT_EQ(CTerminalWriter::Open(-1).Error(), ErrorCode::InvalidHandle);
}

}  // namespace
}  // namespace quorbel
