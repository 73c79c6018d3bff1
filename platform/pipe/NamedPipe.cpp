#include "platform/pipe/NamedPipe.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace quorbel {

namespace {

constexpr std::size_t kLengthSize = 4;
constexpr mode_t kEverybody = 0666;

/// The address of a name in an open folder: by way of the folder's descriptor, as a whole path may be longer
/// than an address holds.
CResult<sockaddr_un> AddressOf(const CFileDescriptor& folder, std::string_view name) {
    const std::string path = "/proc/self/fd/" + std::to_string(folder.Get()) + '/' + std::string(name);
    sockaddr_un address{};
    if (path.size() >= sizeof address.sun_path) return ErrorCode::FilenameExcedsRange;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

CResult<CFileDescriptor> OpenPipeFolder(const std::filesystem::path& folder) {
    CFileDescriptor descriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor.IsOpen()) return ErrorFromErrno(errno);
    return descriptor;
}

CResult<CFileDescriptor> NewSocket() {
    CFileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.IsOpen()) return ErrorFromErrno(errno);
    return socket;
}

CResult<CFileDescriptor> ConnectTo(const CFileDescriptor& folder, std::string_view name) {
    auto socket = NewSocket();
    if (!socket.IsOk()) return socket.Error();
    const auto address = AddressOf(folder, name);
    if (!address.IsOk()) return address.Error();
    if (::connect(socket.Value().Get(), reinterpret_cast<const sockaddr*>(&address.Value()),
                  sizeof address.Value()) != 0) {
        // A server whose queue is full is one that serves.
        return errno == EAGAIN ? ErrorCode::Busy : ErrorFromErrno(errno);
    }
    return std::move(socket).Value();
}

/// A listening socket under the name, open to everybody from the moment at which it has it.
CResult<CFileDescriptor> ListenAt(const CFileDescriptor& folder, const std::string& name) {
    auto socket = NewSocket();
    if (!socket.IsOk()) return socket.Error();
    const std::string beside = name + ".new";
    ::unlinkat(folder.Get(), beside.c_str(), 0);
    const auto address = AddressOf(folder, beside);
    if (!address.IsOk()) return address.Error();
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address.Value());
    if (::bind(socket.Value().Get(), generic, sizeof address.Value()) != 0) return ErrorFromErrno(errno);
    if (::fchmodat(folder.Get(), beside.c_str(), kEverybody, 0) != 0 ||
        ::listen(socket.Value().Get(), SOMAXCONN) != 0 ||
        ::renameat(folder.Get(), beside.c_str(), folder.Get(), name.c_str()) != 0) {
        const ErrorCode error = ErrorFromErrno(errno);
        ::unlinkat(folder.Get(), beside.c_str(), 0);
        return error;
    }
    return std::move(socket).Value();
}

ErrorCode ErrorOfPeer(int error) noexcept {
    return error == EPIPE || error == ECONNRESET ? ErrorCode::BrokenPipe : ErrorFromErrno(error);
}

bool Contains(const std::vector<gid_t>& groups, gid_t group) {
    return std::find(groups.begin(), groups.end(), group) != groups.end();
}

/// The number of the group of that name.
std::optional<gid_t> FindGroup(const std::string& name) {
    std::vector<char> buffer(16384);
    group entry{};
    group* found = nullptr;
    while (::getgrnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) == ERANGE)
        buffer.resize(2 * buffer.size());
    if (found == nullptr) return std::nullopt;
    return entry.gr_gid;
}

}  // namespace

CResult<std::unique_ptr<CPipeConnection>> CPipeConnection::Connect(const std::filesystem::path& folder,
                                                                   std::string_view name) {
    const auto opened = OpenPipeFolder(folder);
    if (!opened.IsOk()) return opened.Error();
    auto socket = ConnectTo(opened.Value(), name);
    if (!socket.IsOk()) return socket.Error();
    return std::make_unique<CPipeConnection>(std::move(socket).Value());
}

ErrorCode CPipeConnection::WaitUntilReady(short direction, CEvent& stop) const {
    for (;;) {
        std::array<pollfd, 2> entries{{{stop.Descriptor(), POLLIN, 0}, {m_socket.Get(), direction, 0}}};
        if (::poll(entries.data(), entries.size(), -1) < 0) {
            if (errno == EINTR) continue;
            return ErrorFromErrno(errno);
        }
        if (entries[0].revents != 0) return ErrorCode::Cancelled;
        if (entries[1].revents != 0) return ErrorCode::Success;
    }
}

CResult<bool> CPipeConnection::WaitFor(const CEvent& event, CEvent& stop, std::chrono::milliseconds timeout) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        std::array<pollfd, 3> entries{{{stop.Descriptor(), POLLIN, 0},
                                       {event.Descriptor(), POLLIN, 0},
                                       {m_socket.Get(), POLLRDHUP, 0}}};
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        const auto most = std::chrono::milliseconds(1000 * 3600);
        const int ready = ::poll(entries.data(), entries.size(),
                                 static_cast<int>(std::clamp(left, left.zero(), most).count()));
        if (ready < 0 && errno != EINTR) return ErrorFromErrno(errno);
        if (ready <= 0 && std::chrono::steady_clock::now() >= end) return false;
        if (ready <= 0) continue;
        if (entries[0].revents != 0) return ErrorCode::Cancelled;
        if (entries[2].revents != 0) return ErrorCode::BrokenPipe;
        return true;
    }
}

ErrorCode CPipeConnection::Read(std::span<std::uint8_t> bytes, CEvent& stop) {
    while (!bytes.empty()) {
        if (const ErrorCode error = WaitUntilReady(POLLIN, stop); error != ErrorCode::Success) return error;
        const ssize_t count = ::recv(m_socket.Get(), bytes.data(), bytes.size(), 0);
        if (count == 0) return ErrorCode::BrokenPipe;
        if (count > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        } else if (errno != EAGAIN && errno != EINTR) {
            return ErrorOfPeer(errno);
        }
    }
    return ErrorCode::Success;
}

ErrorCode CPipeConnection::Write(std::span<const std::uint8_t> bytes, CEvent& stop) {
    while (!bytes.empty()) {
        if (const ErrorCode error = WaitUntilReady(POLLOUT, stop); error != ErrorCode::Success) return error;
        const ssize_t count = ::send(m_socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        } else if (count < 0 && errno != EAGAIN && errno != EINTR) {
            return ErrorOfPeer(errno);
        }
    }
    return ErrorCode::Success;
}

CResult<std::vector<std::uint8_t>> CPipeConnection::ReadMessage(
    CEvent& stop, const std::function<bool(std::size_t)>& mayHold) {
    std::array<std::uint8_t, kLengthSize> head{};
    if (const ErrorCode error = Read(head, stop); error != ErrorCode::Success) return error;
    std::size_t length = 0;
    for (std::size_t i = 0; i < head.size(); ++i) length |= std::size_t{head[i]} << 8 * i;
    if (length > kMostMessage) return ErrorCode::FileTooLarge;
    std::vector<std::uint8_t> message;
    while (message.size() < length) {
        const std::size_t filled = message.size();
        const std::size_t size = std::min(length, std::max(kFirstBuffer, 2 * filled));
        if (size > kFirstBuffer && !mayHold(size)) return ErrorCode::NotEnoughMemory;
        message.resize(size);
        const ErrorCode error = Read(std::span(message).subspan(filled), stop);
        if (error != ErrorCode::Success) return error;
    }
    return message;
}

CResult<std::vector<std::uint8_t>> CPipeConnection::ReadMessage(CEvent& stop) {
    return ReadMessage(stop, [](std::size_t) { return true; });
}

ErrorCode CPipeConnection::WriteMessage(std::initializer_list<std::span<const std::uint8_t>> parts,
                                        CEvent& stop, std::size_t zeros, std::span<const std::uint8_t> last) {
    std::size_t length = zeros + last.size();
    for (const auto& part : parts) length += part.size();
    if (length > kMostMessage) return ErrorCode::FileTooLarge;
    std::array<std::uint8_t, kLengthSize> head{};
    for (std::size_t i = 0; i < head.size(); ++i) head[i] = static_cast<std::uint8_t>(length >> 8 * i);
    if (const ErrorCode error = Write(head, stop); error != ErrorCode::Success) return error;
    for (const auto& part : parts) {
        if (const ErrorCode error = Write(part, stop); error != ErrorCode::Success) return error;
    }
    static constexpr std::array<std::uint8_t, kFirstBuffer> kZeros{};
    while (zeros != 0) {
        const std::size_t count = std::min(zeros, kZeros.size());
        if (const ErrorCode error = Write(std::span(kZeros).first(count), stop); error != ErrorCode::Success)
            return error;
        zeros -= count;
    }
    return Write(last, stop);
}

CResult<bool> CPipeConnection::PeerIsAdministrator(const std::string& group) const {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(m_socket.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return ErrorFromErrno(errno);
    if (peer.uid == 0) return true;
    const auto wanted = group.empty() ? std::nullopt : FindGroup(group);
    if (!wanted) return false;
    std::vector<gid_t> groups(64);
    for (;;) {
        size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        if (::getsockopt(m_socket.Get(), SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) == 0) break;
        if (errno != ERANGE) return ErrorFromErrno(errno);
        groups.resize(size / sizeof(gid_t));
    }
    groups.resize(size / sizeof(gid_t));
    return peer.gid == *wanted || Contains(groups, *wanted);
}

CResult<std::unique_ptr<CNamedPipe>> CNamedPipe::Create(const std::filesystem::path& folder,
                                                        std::string_view name) {
    auto opened = OpenPipeFolder(folder);
    if (!opened.IsOk()) return opened.Error();
    const auto other = ConnectTo(opened.Value(), name);
    if (other.IsOk() || other.Error() == ErrorCode::Busy) return ErrorCode::Busy;
    auto socket = ListenAt(opened.Value(), std::string(name));
    if (!socket.IsOk()) return socket.Error();
    return std::make_unique<CNamedPipe>(std::move(opened).Value(), std::string(name),
                                        std::move(socket).Value());
}

CNamedPipe::CNamedPipe(CFileDescriptor folder, std::string name, CFileDescriptor socket) noexcept
    : m_folder(std::move(folder)), m_name(std::move(name)), m_socket(std::move(socket)) {}

CNamedPipe::~CNamedPipe() {
    ::unlinkat(m_folder.Get(), m_name.c_str(), 0);
}

CResult<std::unique_ptr<CPipeConnection>> CNamedPipe::Accept(CEvent& stop) {
    for (;;) {
        std::array<pollfd, 2> entries{{{stop.Descriptor(), POLLIN, 0}, {m_socket.Get(), POLLIN, 0}}};
        if (::poll(entries.data(), entries.size(), -1) < 0 && errno != EINTR) return ErrorFromErrno(errno);
        if (entries[0].revents != 0) return ErrorCode::Cancelled;
        CFileDescriptor socket(::accept4(m_socket.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (socket.IsOpen()) return std::make_unique<CPipeConnection>(std::move(socket));
        if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) return ErrorFromErrno(errno);
    }
}

}  // namespace quorbel
