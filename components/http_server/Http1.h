#pragma once

#include <chrono>
#include <cpprest/streams.h>
#include <memory>
#include <string>

#include "components/http_server/BodyDecoder.h"
#include "components/http_server/Connection.h"
#include "components/http_server/Exchange.h"
#include "components/http_server/ReplyBody.h"
#include "components/http_server/ReplyHead.h"
#include "components/http_server/RequestHead.h"

namespace quorbel {

/// HTTP/1.1 and HTTP/1.0 on a connection (RFC 9112): one request after the other, each complete before its
/// handler runs, each reply sent before the next request is looked at.
class CHttp1 final : public IProtocol, private IAnswerWaiter {
 public:
    /// The connection owns the protocol.
    CHttp1(CConnection& connection, std::shared_ptr<const CHttpLimits> limits);
    ~CHttp1() override;

    bool OnInput(std::string_view bytes) override;
    void OnEnd() override;
    bool OnWritable() override;
    void OnTick(std::chrono::nanoseconds now) override;
    void OnStop() override;

 private:
    enum class State {
        Head,      ///< reading a request's head
        Body,      ///< reading its body
        Ready,     ///< the request is complete
        Handling,  ///< a handler has it
        Sending,   ///< the reply is on its way
        Draining,  ///< reading what a client sends after the last reply, so that it sees that
        Closed
    };
    /// How a step of sending went on.
    enum class Step {
        Done,
        Waits,  ///< the connection, or the body, calls again
        Lost    ///< another thread has the loop
    };

    void OnLateAnswer() override;

    /// Goes on as far as the input allows.
    [[nodiscard]] bool Advance(std::string_view input);
    /// Keeps the input that was not used, and asks for more.
    void Keep(std::string_view unused);
    void ReadMore(std::string_view unused);
    bool ReadHead(std::string_view& input);
    bool ReadBody(std::string_view& input);
    /// Makes the library's request of the head; the status that refuses it, else 0.
    std::uint16_t BeginRequest(const CRequestHead& head);
    /// The host that the request is for; none sets `status`, with which the request is answered instead.
    std::shared_ptr<CHost> FindHost(std::uint16_t& status);
    void SendContinue();
    void Refuse(std::uint16_t status);

    [[nodiscard]] bool Handle();
    void OnAnswer();
    void BeginReply(const CExchange::Answer& answer);
    Step SendReply();
    Step OnSent(CConnection::Sent sent);
    Step SendFilePart();
    Step ReadFilePart();
    Step Pull();
    void PostWhenPulled(const pplx::task<std::size_t>& pulled);
    Step OnPulled(std::optional<std::size_t> count);
    void EndReply();

    /// False when too much is waiting already: a tick tries again. DoWork or Resume follows otherwise, and
    /// the loop's other threads may look at the state from here on.
    [[nodiscard]] bool BeginWork();
    /// Does `work`, which may wait, and then `then` on the loop; Lost when that happens later.
    template <class Work, class Then>
    Step DoWork(const Work& work, const Then& then);
    void EndBusy();
    void Enter(State state);
    void RefuseNow(std::uint16_t status);
    void CheckProgress(std::chrono::nanoseconds now);
    void CheckPeer();
    /// A host that closes waits for its handlers: one that takes too long is told that it is in vain.
    void CheckHost(std::chrono::nanoseconds now);
    void EnterClosed();
    /// Closes now, or as soon as nothing is under way on another thread.
    void CutOff();
    /// Ends a reply that cannot be completed, so that the client sees that.
    Step Abort();
    std::chrono::nanoseconds Now() const { return m_connection.Loop().Clock().Steady(); }

    CConnection& m_connection;
    const std::shared_ptr<const CHttpLimits> m_limits;
    State m_state = State::Head;
    std::chrono::nanoseconds m_entered;         // the state, or the wait for a request's first byte
    bool m_isIdle = false;                      // between two requests
    bool m_isBusy = false;                      // work is under way, maybe on another thread
    bool m_isCut = false;                       // close when it no longer is
    std::chrono::nanoseconds m_closingSince{};  // when the host of a running handler was seen to close

    // The request.
    std::string m_input;  // received, not used yet
    CRequestHeadParser m_parser;
    CBodyDecoder m_decoder;
    std::string m_body;
    std::uint64_t m_bodyReceived = 0;
    bool m_isOldClient = false;
    bool m_keepsAlive = true;
    bool m_isHeadRequest = false;
    std::shared_ptr<CExchange> m_exchange;
    std::optional<web::http::http_request> m_request;
    bool m_isOtherScheme = false;

    // The host of the last request, by the text that named it.
    std::string m_authority;
    std::uint64_t m_hostGeneration = 0;  // of the port's hosts; 0 before the host was looked for
    std::shared_ptr<CHost> m_host;
    bool m_isMisdirected = false;  // it is not the one that TLS was set up for

    // The reply.
    CReplyBody m_reply;
    bool m_awaitsWork = false;   // the last work could not begin
    bool m_hasPiece = false;     // of the body, ready to be sent
    bool m_isBlocked = false;    // until the client has read
    std::uint64_t m_offset = 0;  // of the part that is read or sent
    CConnection::Sent m_sent = CConnection::Sent::All;
    std::chrono::nanoseconds m_windowStart{};
    std::uint64_t m_windowAcknowledged = 0;
    std::uint64_t m_drained = 0;
};

}  // namespace quorbel
