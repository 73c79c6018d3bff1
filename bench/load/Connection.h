#pragma once

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace quorbel {

/// Where the service is asked.
struct CServer {
    /// Of "http://NAME:PORT" or "https://NAME:PORT"; throws std::runtime_error for anything else.
    static CServer Parse(const std::string& url);

    /// Without further header lines and body: "METHOD TARGET HTTP/1.1", the Host field and `lines`, each of
    /// which ends with CR LF, as does the whole.
    std::string Head(std::string_view method, std::string_view target, std::string_view lines = "") const;

    std::string name;  ///< for the Host field and for TLS; the address is 127.0.0.1 whatever it says
    std::uint16_t port = 0;
    std::shared_ptr<boost::asio::ssl::context> tls;  ///< null for plain connections
};

struct CReply {
    /// Of a header field, its name in lower case; empty when there is none.
    std::string Field(std::string_view lowerCaseName) const;

    int status = 0;
    std::string head;  ///< as received, status line and fields
    std::string body;
};

/// A client connection. What fails throws std::exception (boost::system::system_error for the socket's and
/// TLS's failures).
class CConnection {
 public:
    CConnection(boost::asio::io_context& context, const CServer& server);

    /// Connects and, for TLS, shakes hands. A `receiveBuffer` other than 0 bounds what the system takes for a
    /// client that does not read.
    boost::asio::awaitable<void> Open(int receiveBuffer = 0);
    boost::asio::awaitable<void> Send(std::string_view bytes);
    /// The next reply, which must say its length; earlier or further bytes are kept for the one after it.
    boost::asio::awaitable<CReply> Receive();
    /// Waits for the end of the connection, orderly or not; false when a byte comes first.
    boost::asio::awaitable<bool> WaitForEnd();

    /// Whether the peer has sent anything, its end included, that was not received. Plain connections only.
    bool HasSomethingToSay();

 private:
    boost::asio::awaitable<void> Fill();

    const CServer& m_server;
    boost::asio::ip::tcp::socket m_socket;
    std::unique_ptr<boost::asio::ssl::stream<boost::asio::ip::tcp::socket&>> m_tls;  ///< null when plain
    std::string m_received;
};

}  // namespace quorbel
