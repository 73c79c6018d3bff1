#include "bench/load/Connection.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>

namespace quorbel {

namespace asio = boost::asio;
using asio::awaitable;
using asio::use_awaitable;
using asio::ip::tcp;

namespace {

/// The number that all of `text` is; throws otherwise.
std::size_t ToNumber(std::string_view text) {
    std::size_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || text.empty())
        throw std::runtime_error("no number: " + std::string(text));
    return number;
}

std::string ToLowerCase(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return result;
}

bool HasBody(int status) {
    return status != 204 && status != 304;
}

}  // namespace

CServer CServer::Parse(const std::string& url) {
    const std::size_t name = url.find("://");
    const std::size_t port = url.rfind(':');
    if (name == std::string::npos || port == name) throw std::runtime_error("no URL: " + url);
    const std::string scheme = url.substr(0, name);
    CServer server;
    server.name = url.substr(name + 3, port - name - 3);
    server.port = static_cast<std::uint16_t>(ToNumber(url.substr(port + 1)));
    if (scheme == "https") {
        server.tls = std::make_shared<asio::ssl::context>(asio::ssl::context::tls_client);
    } else if (scheme != "http") {
        throw std::runtime_error("unknown scheme: " + url);
    }
    return server;
}

std::string CServer::Head(std::string_view method, std::string_view target, std::string_view lines) const {
    std::string head(method);
    head.append(" ").append(target).append(" HTTP/1.1\r\nHost: ").append(name).append(":");
    return head.append(std::to_string(port)).append("\r\n").append(lines).append("\r\n");
}

std::string CReply::Field(std::string_view lowerCaseName) const {
    const std::string start = "\r\n" + std::string(lowerCaseName) + ":";
    const std::size_t found = ToLowerCase(head).find(start);
    if (found == std::string::npos) return "";
    const std::size_t value = head.find_first_not_of(" \t", found + start.size());
    return head.substr(value, head.find("\r\n", value) - value);
}

CConnection::CConnection(asio::io_context& context, const CServer& server)
    : m_server(server), m_socket(context) {
    if (m_server.tls) m_tls = std::make_unique<asio::ssl::stream<tcp::socket&>>(m_socket, *m_server.tls);
}

awaitable<void> CConnection::Open(int receiveBuffer) {
    m_socket.open(tcp::v4());
    if (receiveBuffer > 0) m_socket.set_option(tcp::socket::receive_buffer_size(receiveBuffer));
    m_socket.set_option(tcp::no_delay(true));
    const tcp::endpoint address(asio::ip::address_v4::loopback(), m_server.port);
    co_await m_socket.async_connect(address, use_awaitable);
    m_socket.non_blocking(true);
    if (!m_tls) co_return;
    SSL_set_tlsext_host_name(m_tls->native_handle(), m_server.name.c_str());
    co_await m_tls->async_handshake(asio::ssl::stream_base::client, use_awaitable);
}

awaitable<void> CConnection::Send(std::string_view bytes) {
    const auto buffer = asio::buffer(bytes.data(), bytes.size());
    if (m_tls) {
        co_await asio::async_write(*m_tls, buffer, use_awaitable);
    } else {
        co_await asio::async_write(m_socket, buffer, use_awaitable);
    }
}

awaitable<void> CConnection::Fill() {
    std::array<char, 16384> bytes;
    const auto buffer = asio::buffer(bytes);
    std::size_t count = 0;
    if (m_tls) {
        count = co_await m_tls->async_read_some(buffer, use_awaitable);
    } else {
        count = co_await m_socket.async_read_some(buffer, use_awaitable);
    }
    m_received.append(bytes.data(), count);
}

awaitable<CReply> CConnection::Receive() {
    std::size_t end = 0;
    while ((end = m_received.find("\r\n\r\n")) == std::string::npos) co_await Fill();
    CReply reply;
    reply.head = m_received.substr(0, end + 2);
    m_received.erase(0, end + 4);
    if (reply.head.substr(0, 9) != "HTTP/1.1 ") throw std::runtime_error("no reply: " + reply.head);
    reply.status = static_cast<int>(ToNumber(reply.head.substr(9, 3)));
    if (!HasBody(reply.status)) co_return reply;
    const std::size_t length = ToNumber(reply.Field("content-length"));
    while (m_received.size() < length) co_await Fill();
    reply.body = m_received.substr(0, length);
    m_received.erase(0, length);
    co_return reply;
}

awaitable<bool> CConnection::WaitForEnd() {
    try {
        if (m_received.empty()) co_await Fill();
        co_return false;
    } catch (const boost::system::system_error&) {
        co_return true;
    }
}

bool CConnection::HasSomethingToSay() {
    char byte = 0;
    boost::system::error_code error;
    m_socket.receive(asio::buffer(&byte, 1), tcp::socket::message_peek, error);
    return error != asio::error::would_block;
}

}  // namespace quorbel
