#include "tests/support/service/HttpConnection.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace quorbel {

namespace {

/// Receives what there is; a debugger or a dump of this process may interrupt the wait.
template <class Buffer>
ssize_t ReceiveUninterrupted(int socket, Buffer& buffer) {
    ssize_t count = 0;
    do count = ::recv(socket, buffer.data(), buffer.size(), 0);
    while (count < 0 && errno == EINTR);
    return count;
}

}  // namespace

namespace {

sockaddr_in Address(const char* address, int port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(static_cast<std::uint16_t>(port));
    ::inet_pton(AF_INET, address, &result.sin_addr);
    return result;
}

}  // namespace

std::string CHttpReply::Header(std::wstring_view name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? "(none)" : found->second;
}

CHttpConnection::CHttpConnection(int port, const char* address, int receiveBuffer) : m_host(address) {
    sockaddr_in6 ipv6{};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = htons(static_cast<std::uint16_t>(port));
    const bool isIpv6 = ::inet_pton(AF_INET6, address, &ipv6.sin6_addr) == 1;
    const sockaddr_in ipv4 = Address(isIpv6 ? "0.0.0.0" : address, port);
    CFileDescriptor socket(::socket(isIpv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval patience{30, 0};
    ::setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    const int one = 1;
    ::setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    if (receiveBuffer != 0) {
        ::setsockopt(socket.Get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    const auto* target =
        isIpv6 ? reinterpret_cast<const sockaddr*>(&ipv6) : reinterpret_cast<const sockaddr*>(&ipv4);
    if (::connect(socket.Get(), target, isIpv6 ? sizeof ipv6 : sizeof ipv4) == 0) {
        m_socket = std::move(socket);
    }
}

bool CHttpConnection::Send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(m_socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool CHttpConnection::FillWith(std::string& bytes) {
    std::array<char, 16384> buffer{};
    const ssize_t count = ReceiveUninterrupted(m_socket.Get(), buffer);
    if (count <= 0) {
        const bool isReset = count < 0 && errno == ECONNRESET;
        m_end = count == 0 ? End::Clean : isReset ? End::Aborted : End::None;
        return false;
    }
    bytes.append(buffer.data(), static_cast<std::size_t>(count));
    return true;
}

std::optional<std::string> CHttpConnection::ReceiveBytes() {
    std::array<char, 16384> buffer{};
    const ssize_t count = ReceiveUninterrupted(m_socket.Get(), buffer);
    if (count < 0) return std::nullopt;
    return std::string(buffer.data(), static_cast<std::size_t>(count));
}

bool CHttpConnection::Fill() {
    return FillWith(m_received);
}

std::string CHttpConnection::ReceiveSome(std::size_t most) {
    if (m_received.empty() && !Fill()) return {};
    std::string bytes = m_received.substr(0, most);
    m_received.erase(0, bytes.size());
    return bytes;
}

CHttpConnection::End CHttpConnection::ReceiveAll(std::string& bytes) {
    while (Fill()) {
    }
    bytes = std::exchange(m_received, {});
    return m_end;
}

std::optional<std::string> CHttpConnection::TakeLine() {
    std::size_t end = 0;
    while ((end = m_received.find("\r\n")) == std::string::npos) {
        if (!Fill()) return std::nullopt;
    }
    std::string line = m_received.substr(0, end);
    m_received.erase(0, end + 2);
    return line;
}

std::optional<std::string> CHttpConnection::Take(std::size_t count) {
    while (m_received.size() < count) {
        if (!Fill()) return std::nullopt;
    }
    std::string bytes = m_received.substr(0, count);
    m_received.erase(0, count);
    return bytes;
}

std::optional<std::string> CHttpConnection::TakeChunks() {
    std::string body;
    for (;;) {
        const auto size = TakeLine();
        if (!size) return std::nullopt;
        const auto chunk = Take(std::stoul(*size, nullptr, 16));
        if (!chunk || !TakeLine()) return std::nullopt;
        if (chunk->empty()) return body;
        body += *chunk;
    }
}

std::optional<CHttpReply> CHttpConnection::Receive() {
    const auto statusLine = TakeLine();
    if (!statusLine || statusLine->size() < 12) return std::nullopt;
    CHttpReply reply;
    reply.status = std::stoi(statusLine->substr(9, 3));
    for (;;) {
        const auto line = TakeLine();
        if (!line) return std::nullopt;
        if (line->empty()) break;
        const std::size_t colon = line->find(": ");
        if (colon == std::string::npos) return std::nullopt;
        reply.headers[FromUtf8(line->substr(0, colon))] = line->substr(colon + 2);
    }
    if (reply.status == 304) return reply;
    std::optional<std::string> body;
    if (reply.Header(L"Transfer-Encoding") == "chunked") {
        body = TakeChunks();
    } else if (const auto length = reply.headers.find(L"Content-Length"); length != reply.headers.end()) {
        body = Take(std::stoul(length->second));
    } else {
        body = "";
    }
    if (!body) return std::nullopt;
    reply.body = std::move(*body);
    return reply;
}

std::optional<CHttpReply> CHttpConnection::Request(std::string_view method, std::string_view target,
                                                   std::string_view headerLines, std::string_view body) {
    std::string bytes;
    bytes.append(method)
        .append(" ")
        .append(target)
        .append(" HTTP/1.1\r\nHost: ")
        .append(m_host)
        .append("\r\n")
        .append(headerLines);
    if (!body.empty()) bytes.append("Content-Length: ").append(std::to_string(body.size())).append("\r\n");
    bytes.append("\r\n").append(body);
    if (!Send(bytes)) return std::nullopt;
    return Receive();
}

CTakenPort::CTakenPort(const char* address) : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in bound = Address(address, 0);
    socklen_t size = sizeof bound;
    ::bind(m_socket.Get(), reinterpret_cast<const sockaddr*>(&bound), size);
    ::listen(m_socket.Get(), 1);
    ::getsockname(m_socket.Get(), reinterpret_cast<sockaddr*>(&bound), &size);
    m_port = ntohs(bound.sin_port);
}

int FreePort() {
    const CFileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = Address("127.0.0.1", 0);
    socklen_t size = sizeof address;
    ::bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), size);
    ::getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

}  // namespace quorbel
