#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/FileDescriptor.h"
#include "platform/Text.h"

namespace quorbel {

/// A reply as it came over the wire.
struct CHttpReply {
    int status = 0;
    std::map<std::wstring, std::string, CLessNoCase> headers;
    std::string body;

    /// The field's value; "(none)" when there is none, so that an expectation shows what was missing.
    std::string Header(std::wstring_view name) const;
};

/// A plain client connection on loopback that sends exactly the bytes it is given.
class CHttpConnection {
 public:
    /// Connects; not connected when nobody listens.
    explicit CHttpConnection(int port, const char* address = "127.0.0.1");
    bool IsConnected() const noexcept { return m_socket.IsOpen(); }

    bool Send(std::string_view bytes);
    /// Waits until more of a reply has arrived; false at the end of the connection.
    bool WaitForBytes() { return Fill(); }
    /// What has arrived, at least a byte; empty at the end of the connection, none when it was cut off.
    std::optional<std::string> ReceiveBytes();
    /// The next reply; none when the connection ended before it was complete.
    std::optional<CHttpReply> Receive();

    /// Sends a request with the address as its Host, Connection: keep-alive and further header lines, and
    /// receives the reply.
    std::optional<CHttpReply> Request(std::string_view method, std::string_view target,
                                      std::string_view headerLines = "", std::string_view body = "");

 private:
    bool Fill();
    std::optional<std::string> TakeLine();
    std::optional<std::string> Take(std::size_t count);
    std::optional<std::string> TakeChunks();

    const std::string m_host;
    CFileDescriptor m_socket;
    std::string m_received;
};

/// A port on which nothing listens.
int FreePort();

/// A port on which another listens, as another program would.
class CTakenPort {
 public:
    explicit CTakenPort(const char* address);
    int Port() const noexcept { return m_port; }

 private:
    CFileDescriptor m_socket;
    int m_port;
};

}  // namespace quorbel
