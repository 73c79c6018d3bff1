#pragma once

#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <memory>
#include <string>
#include <string_view>

#include "components/http_server/Admission.h"
#include "components/http_server/Loop.h"
#include "components/http_server/Port.h"
#include "components/http_server/Tls.h"

namespace quorbel {

class CConnection;

/// What is spoken over a connection. Everything runs on the connection's loop. An operation that returns
/// false has lost the loop to another thread (CLoop::Resume): its caller returns at once and touches nothing
/// any more.
class IProtocol {
 public:
    virtual ~IProtocol() = default;
    /// Bytes have come, after CConnection::Read asked for them.
    [[nodiscard]] virtual bool OnInput(std::string_view bytes) = 0;
    /// Nothing more will come of what was asked for.
    virtual void OnEnd() = 0;
    /// What could not be sent at once can be sent now.
    [[nodiscard]] virtual bool OnWritable() = 0;
    virtual void OnTick(std::chrono::nanoseconds now) = 0;
    /// The server stops: closes the connection, or aborts it in the middle of a reply.
    virtual void OnStop() = 0;
};

/// One client's connection: owns the socket and its TLS, and carries bytes for a protocol. Lives until it is
/// closed and nothing is under way any more. Used on its loop.
class CConnection final : public std::enable_shared_from_this<CConnection>, private CLoop::ITicking {
 public:
    using Socket = boost::asio::ip::tcp::socket;

    CConnection(CLoop& loop, Socket socket, std::shared_ptr<CPort> port, CAdmission admission);
    ~CConnection() override;
    CConnection(const CConnection&) = delete;
    CConnection& operator=(const CConnection&) = delete;

    /// Begins to speak the protocol, over TLS when there is a TLS server.
    void Start(std::unique_ptr<IProtocol> protocol, const CTlsServer* tls);

    CLoop& Loop() const noexcept { return *m_loop; }
    CPort& Port() const noexcept { return *m_port; }
    const std::string& PeerAddress() const noexcept { return m_peerAddress; }
    const std::string& LocalAddress() const noexcept { return m_localAddress; }
    CPort::Reached ReachedFrom() const noexcept {
        return m_isLocal ? CPort::Reached::FromHere : CPort::Reached::FromOutside;
    }
    bool IsTls() const noexcept { return m_tls != nullptr; }
    bool IsOpen() const noexcept { return m_socket.is_open(); }
    /// The name that the client asked for by SNI; empty for none.
    const std::string& ServerName() const noexcept;

    /// Asks for input, once: OnInput or OnEnd follows. Nothing is read unasked.
    void Read() noexcept { m_wantsRead = true; }
    /// Runs `work`, which returns as IProtocol's operations do, on the loop, later. From any thread.
    template <class Work>
    void Post(Work&& work) {
        m_loop->Post([self = shared_from_this(), work = std::forward<Work>(work)]() mutable {
            if (work()) self->Settle();
        });
    }

    enum class Sent {
        All,
        Blocked,  ///< OnWritable follows
        Failed    ///< the connection is lost
    };
    /// What Flush is to send.
    std::string& Output() noexcept { return m_tls ? m_plain : m_wire; }
    enum class More { No, Follows };
    Sent Flush(More more = More::No);
    /// False over TLS, and for files that only reading gives.
    bool CanSendFiles() const noexcept { return !m_tls && m_canSendFiles; }
    /// What Flush has left over is on its way still.
    bool IsSending() const noexcept { return m_isWireBlocked; }
    /// Sends from a file, over a plain connection whose output has been flushed; moves `offset` on. May wait
    /// for the disk. All: a part of it, or up to `end`. Failed also when the file ends before.
    Sent SendFile(int file, std::uint64_t& offset, std::uint64_t end);
    /// After SendFile was blocked: OnWritable follows.
    void AwaitFile() {
        m_isProtocolBlocked = true;
        WaitUntilWritable();
    }
    /// Frees what sending has used.
    void ReleaseOutput();
    /// Bytes that the client's system has confirmed; a measure of its progress.
    std::uint64_t Acknowledged();

    /// True when the client has closed its side, or the connection is broken.
    bool HasPeerLeft();
    /// Sends no more, but still reads.
    void EndOutput();
    void Close();
    /// Closes in a way that the client does not take for a proper end.
    void Abort();
    /// Ends all traffic, so that work under way on the socket fails soon; Close or Abort follows.
    void Break();

 private:
    void OnTick(std::chrono::nanoseconds now) override;
    void OnLoopEnd() override;
    void StartRead();
    void OnRead(const boost::system::error_code& error, std::size_t count);
    /// Reads what is there already after a read that filled its buffer.
    bool ReadOn();
    [[nodiscard]] bool Deliver(std::string_view bytes);
    [[nodiscard]] bool DeliverTls(std::string_view bytes);
    /// Does what the protocol has asked for.
    void Settle();
    Sent SendWire(More more);
    void WaitUntilWritable();
    void OnWritable(const boost::system::error_code& error);

    const std::shared_ptr<CLoop> m_loop;
    const std::shared_ptr<CPort> m_port;
    const CAdmission m_admission;
    Socket m_socket;
    std::string m_peerAddress;
    std::string m_localAddress;
    bool m_isLocal = false;  ///< reached at a loopback address

    std::unique_ptr<CTlsChannel> m_tls;
    std::unique_ptr<IProtocol> m_protocol;
    std::string m_plain;  // output, before encryption
    std::string m_wire;   // output
    std::size_t m_wireSent = 0;
    std::uint64_t m_sentTotal = 0;
    bool m_wantsRead = false;
    bool m_hasEnded = false;  // nothing more will come
    bool m_isReading = false;
    bool m_isWaitingWritable = false;
    bool m_isWireBlocked = false;  // m_wire could not be sent whole
    bool m_canSendFiles = true;
    bool m_isProtocolBlocked = false;
    std::array<char, 2048> m_buffer;
};

}  // namespace quorbel
