#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/Event.h"
#include "platform/FileDescriptor.h"

namespace quorbel {

/// One end of a connection over a named pipe, which carries messages: each is preceded by its length (4
/// bytes, little-endian). For one thread at a time. Every call that waits ends with Cancelled when `stop` is
/// set, and with BrokenPipe when the other end has left.
class CPipeConnection {
 public:
    static constexpr std::size_t kMostMessage = 16 << 20;  ///< bytes
    static constexpr std::size_t kFirstBuffer = 4096;  ///< bytes that a message is given room for at first

    /// Connects to the pipe of that name in the folder. FileNotFound without such a pipe, ConnectionRefused
    /// when nobody serves it any more.
    static CResult<std::unique_ptr<CPipeConnection>> Connect(const std::filesystem::path& folder,
                                                             std::string_view name);

    /// Reads a whole message. Memory grows with what has arrived, never with what a length promises; beyond
    /// the first buffer, `mayHold` is asked for each size before it is taken. FileTooLarge for a message
    /// longer than kMostMessage, NotEnoughMemory when `mayHold` refuses; what follows cannot be read then.
    CResult<std::vector<std::uint8_t>> ReadMessage(CEvent& stop,
                                                   const std::function<bool(std::size_t)>& mayHold);
    /// The same for whoever trusts the other end.
    CResult<std::vector<std::uint8_t>> ReadMessage(CEvent& stop);

    /// Writes one message from its parts, then `zeros` bytes of 0 and the last part. FileTooLarge for more
    /// than kMostMessage.
    ErrorCode WriteMessage(std::initializer_list<std::span<const std::uint8_t>> parts, CEvent& stop,
                           std::size_t zeros = 0, std::span<const std::uint8_t> last = {});

    /// Waits until the event is set (true) or the time has passed (false).
    CResult<bool> WaitFor(const CEvent& event, CEvent& stop, std::chrono::milliseconds timeout);

    /// Whether the process at the other end runs as the superuser or is of the group; an empty or unknown
    /// group has no members.
    CResult<bool> PeerIsAdministrator(const std::string& group) const;

    explicit CPipeConnection(CFileDescriptor socket) noexcept : m_socket(std::move(socket)) {}

 private:
    ErrorCode Read(std::span<std::uint8_t> bytes, CEvent& stop);
    ErrorCode Write(std::span<const std::uint8_t> bytes, CEvent& stop);
    ErrorCode WaitUntilReady(short direction, CEvent& stop) const;

    const CFileDescriptor m_socket;
};

/// The serving end of a named pipe, open to every user of the machine.
class CNamedPipe {
 public:
    /// Makes the pipe in a folder, in place of one that nobody serves any more; Busy when somebody does.
    static CResult<std::unique_ptr<CNamedPipe>> Create(const std::filesystem::path& folder,
                                                       std::string_view name);
    /// Takes the name away.
    ~CNamedPipe();
    CNamedPipe(const CNamedPipe&) = delete;
    CNamedPipe& operator=(const CNamedPipe&) = delete;

    /// Waits for the next connection; Cancelled when `stop` is set.
    CResult<std::unique_ptr<CPipeConnection>> Accept(CEvent& stop);

    /// For Create.
    CNamedPipe(CFileDescriptor folder, std::string name, CFileDescriptor socket) noexcept;

 private:
    const CFileDescriptor m_folder;
    const std::string m_name;
    const CFileDescriptor m_socket;
};

}  // namespace quorbel
