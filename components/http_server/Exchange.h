#pragma once

#include <atomic>
#include <cpprest/http_msg.h>
#include <memory>
#include <optional>
#include <string>

#include "components/http_server/RequestHead.h"
#include "platform/Waiting.h"

namespace quorbel {

/// Waits for the answer to an exchange.
class IAnswerWaiter {
 public:
    virtual ~IAnswerWaiter() = default;
    /// The answer is there, after the handler had returned without one. Called from any thread.
    virtual void OnLateAnswer() = 0;
};

/// One request on its way through the HTTP library, and the answer to it. Answered exactly once, by the
/// library or by the request's end without a reply. Independent of the protocol that carries it.
class CExchange : public std::enable_shared_from_this<CExchange> {
 public:
    using Answer = std::optional<web::http::http_response>;  ///< none: the request was dropped

    explicit CExchange(std::shared_ptr<IAnswerWaiter> waiter) noexcept : m_waiter(std::move(waiter)) {}

    /// The library's request of a head, without its body; throws web::uri_exception when the library knows no
    /// such target. `path` is the head's, in canonical form.
    web::http::http_request MakeRequest(const CRequestHead& head, std::string_view path,
                                        const std::string& peerAddress);
    /// The body is there, maybe empty.
    static void Complete(web::http::http_request& request, std::string body);
    /// Answers the request to which `response` belongs.
    static void Respond(web::http::http_response response);

    /// The first answer counts.
    void SetAnswer(Answer answer);
    /// The handler has returned: true when the answer is there. Otherwise OnLateAnswer follows.
    bool HandlerReturned() noexcept;
    /// Abandoned when the client leaves while the handler runs.
    CAbandonment& Abandonment() noexcept { return m_abandonment; }
    /// The answer that is there.
    Answer TakeAnswer() { return std::move(m_answer); }

 private:
    enum class State { Running, Waiting, Answered };

    std::shared_ptr<IAnswerWaiter> m_waiter;
    CAbandonment m_abandonment;
    std::atomic<bool> m_isAnswered{false};
    std::atomic<State> m_state{State::Running};
    Answer m_answer;  // written before m_state becomes Answered
};

}  // namespace quorbel
