#include "components/http_server/Http1.h"

#include "components/http_server/HostName.h"
#include "platform/UrlPath.h"
#include "platform/fault/Faults.h"

namespace quorbel {

namespace {

using std::chrono::seconds;
using web::http::status_codes;

/// A body may be slow for so long before its rate counts.
constexpr seconds kBodyGrace{10};
/// A body up to this size leaves in one piece with its head.
constexpr std::uint64_t kSmallBody = 16384;
/// After so many requests that came together, or pieces of a reply, other connections have their turn.
constexpr int kPiecesPerTurn = 16;

/// None when the body failed.
std::optional<std::size_t> ResultOf(const pplx::task<std::size_t>& pulled) noexcept {
    try {
        return pulled.get();
    } catch (...) {
        return std::nullopt;
    }
}

bool IsFinalStatus(std::uint16_t status) noexcept {
    return status >= 200 && status <= 999;
}

}  // namespace

CHttp1::CHttp1(CConnection& connection, std::shared_ptr<const CHttpLimits> limits)
    : m_connection(connection), m_limits(std::move(limits)), m_entered(Now()) {}

CHttp1::~CHttp1() = default;

void CHttp1::Enter(State state) {
    m_state = state;
    m_entered = Now();
}

bool CHttp1::OnInput(std::string_view bytes) {
    if (m_state == State::Draining) {
        m_drained += bytes.size();
        if (m_drained > m_limits->drainBytes) {
            CutOff();
        } else {
            m_connection.Read();
        }
        return true;
    }
    if (m_state != State::Head && m_state != State::Body) {
        // TLS may bring more than was asked for.
        m_input.append(bytes);
        return true;
    }
    if (m_isIdle) {
        m_isIdle = false;
        m_entered = Now();
    }
    if (m_state == State::Body) m_bodyReceived += bytes.size();
    if (m_input.empty()) return Advance(bytes);
    m_input.append(bytes);
    return Advance(m_input);
}

void CHttp1::OnEnd() {
    CutOff();
}

bool CHttp1::OnWritable() {
    m_isBlocked = false;
    m_windowStart = {};
    return Advance(m_input);
}

bool CHttp1::Advance(std::string_view input) {
    if (m_isBusy) return true;  // the end of that work goes on
    for (int turn = 0;;) {
        switch (m_state) {
            case State::Head:
                if (!ReadHead(input)) return true;
                break;
            case State::Body:
                if (!ReadBody(input)) return true;
                break;
            case State::Ready:
                Keep(input);
                if (!Handle()) return false;
                if (m_state == State::Handling || m_awaitsWork) return true;
                break;
            case State::Sending: {
                const Step step = SendReply();
                if (step != Step::Done) return step == Step::Waits;
                EndReply();
                input = m_input;
                if (m_state == State::Head && !input.empty() && ++turn == kPiecesPerTurn) {
                    m_connection.Post([this] { return Advance(m_input); });
                    return true;
                }
                break;
            }
            case State::Handling:
            case State::Draining:
            case State::Closed: return true;
        }
    }
}

void CHttp1::Keep(std::string_view unused) {
    if (unused.data() >= m_input.data() && unused.data() <= m_input.data() + m_input.size()) {
        m_input.erase(0, static_cast<std::size_t>(unused.data() - m_input.data()));
    } else {
        m_input.assign(unused);
    }
}

void CHttp1::ReadMore(std::string_view unused) {
    Keep(unused);
    m_connection.Read();
}

bool CHttp1::ReadHead(std::string_view& input) {
    switch (m_parser.Parse(input, *m_limits)) {
        case CRequestHeadParser::Progress::Incomplete: ReadMore(input); return false;
        case CRequestHeadParser::Progress::Refused: Refuse(m_parser.Refusal()); return true;
        case CRequestHeadParser::Progress::Complete: break;
    }
    const CRequestHead& head = m_parser.Head();
    if (const std::uint16_t refusal = BeginRequest(head)) {
        Refuse(refusal);
        return true;
    }
    input.remove_prefix(m_parser.Length());
    if (head.contentLength == 0 && !head.isChunked) {
        CExchange::Complete(*m_request, {});
        m_state = State::Ready;
    } else {
        m_decoder.Reset(head);
        m_bodyReceived = input.size();
        Enter(State::Body);
        if (head.expectsContinue && input.empty()) SendContinue();
    }
    m_parser.Reset();
    return true;
}

bool CHttp1::ReadBody(std::string_view& input) {
    switch (m_decoder.Take(input, m_body, *m_limits)) {
        case CBodyDecoder::Progress::Incomplete: ReadMore(input); return false;
        case CBodyDecoder::Progress::Refused: Refuse(m_decoder.Refusal()); return true;
        case CBodyDecoder::Progress::Complete: break;
    }
    CExchange::Complete(*m_request, std::exchange(m_body, {}));
    m_state = State::Ready;
    return true;
}

std::uint16_t CHttp1::BeginRequest(const CRequestHead& head) {
    // The authority form names no path.
    std::string_view path = head.target == CRequestHead::Target::Authority ? "/" : head.path;
    std::string canonical;
    if (!CUrlPath::IsPlain(path)) {
        const auto parsed = CUrlPath::Parse(path);
        if (const auto* refusal = std::get_if<CUrlPath::Refusal>(&parsed)) {
            return *refusal == CUrlPath::Refusal::TooLong ? status_codes::RequestUriTooLarge
                                                          : status_codes::BadRequest;
        }
        path = canonical = std::get<CUrlPath>(parsed).Encoded();
    }
    m_isOldClient = head.minorVersion == 0;
    m_isHeadRequest = head.method == "HEAD";
    m_keepsAlive = head.keepsAlive;
    m_isOtherScheme =
        head.scheme == (m_connection.IsTls() ? CRequestHead::Scheme::Http : CRequestHead::Scheme::Https);
    if (head.authority != m_authority) {
        m_authority = head.authority;
        m_hostGeneration = 0;
    }
    m_exchange =
        std::make_shared<CExchange>(std::shared_ptr<IAnswerWaiter>(m_connection.shared_from_this(), this));
    try {
        m_request = m_exchange->MakeRequest(head, path, m_connection.PeerAddress());
    } catch (const std::exception&) {
        return status_codes::BadRequest;
    }
    return 0;
}

std::shared_ptr<CHost> CHttp1::FindHost(std::uint16_t& status) {
    const CPort& port = m_connection.Port();
    const std::uint64_t generation = port.Generation();
    if (generation != m_hostGeneration) {
        const auto reached = m_connection.ReachedFrom();
        m_host = port.Find(CanonicalHost(m_authority), reached);
        if (const std::string& serverName = m_connection.ServerName(); !serverName.empty()) {
            m_isMisdirected = port.Find(serverName, reached) != m_host;
        }
        m_hostGeneration = generation;
    }
    status = m_isMisdirected || m_isOtherScheme ? status_codes::MisdirectedRequest : status_codes::NotFound;
    return m_isMisdirected || m_isOtherScheme ? nullptr : m_host;
}

void CHttp1::SendContinue() {
    m_connection.Output().append("HTTP/1.1 100 Continue\r\n\r\n");
    // What cannot be sent now leaves before the reply.
    Ignore(m_connection.Flush());
}

void CHttp1::Refuse(std::uint16_t status) {
    m_exchange.reset();
    m_request.reset();
    m_input.clear();
    m_keepsAlive = m_isHeadRequest = false;
    BeginReply(web::http::http_response(status));
}

bool CHttp1::Handle() {
    std::uint16_t status = 0;
    const auto host = FindHost(status);
    if (!host && m_connection.Port().IsClosed()) {
        // Its hosts may be served again by now, over other connections: the client tries one.
        CutOff();
        return true;
    }
    if (!host) {
        m_request.reset();
        m_exchange.reset();
        BeginReply(web::http::http_response(status));
        return true;
    }
    Enter(State::Handling);
    m_closingSince = {};
    if (!BeginWork()) {
        m_state = State::Ready;
        return true;
    }
    return DoWork(
               [this, host = host.get()] {
                   const CAbandonmentScope scope(m_exchange->Abandonment());
                   try {
                       const CFaultScope faults;
                       if (!host->Handle(*m_request))
                           m_exchange->SetAnswer(web::http::http_response(status_codes::NotFound));
                   } catch (...) {
                       // The request ends unanswered, which is a failure.
                       TakeCaughtFault();
                   }
                   m_request.reset();
               },
               [this] {
                   if (m_exchange->HandlerReturned()) OnAnswer();
                   return Step::Done;
               }) != Step::Lost;
}

bool CHttp1::BeginWork() {
    // Said first: once the loop may be handed over, it is no longer this thread that may say so.
    m_isBusy = true;
    m_awaitsWork = false;
    if (m_connection.Loop().MayWait()) return true;
    m_isBusy = false;
    m_awaitsWork = true;
    return false;
}

template <class Work, class Then>
CHttp1::Step CHttp1::DoWork(const Work& work, const Then& then) {
    const auto connection = m_connection.shared_from_this();
    work();
    if (m_connection.Loop().Resume()) {
        m_isBusy = false;
        return then();
    }
    connection->Post([this, then] {
        EndBusy();
        return then() != Step::Done || Advance(m_input);
    });
    return Step::Lost;
}

void CHttp1::EndBusy() {
    m_isBusy = false;
    if (m_isCut) CutOff();
}

void CHttp1::OnLateAnswer() {
    m_connection.Post([this] {
        OnAnswer();
        return Advance(m_input);
    });
}

void CHttp1::OnAnswer() {
    const CExchange::Answer answer = m_exchange->TakeAnswer();
    m_exchange.reset();
    if (m_state != State::Closed) {
        BeginReply(answer);
    } else if (answer && answer->body().is_valid()) {
        CReplyBody(*answer, false).Close();
    }
}

void CHttp1::BeginReply(const CExchange::Answer& answer) {
    static const web::http::http_headers none;
    CReplyHead head;
    const bool isValid = answer && IsFinalStatus(answer->status_code()) && AreValidFields(answer->headers());
    if (answer && answer->body().is_valid()) m_reply = CReplyBody(*answer, !m_isOldClient);
    if (!isValid || !answer->body().is_valid()) m_reply = CReplyBody(Framing::Length);
    head.status = isValid ? answer->status_code() : status_codes::InternalError;
    head.framing = MayHaveBody(head.status) ? m_reply.GetFraming() : Framing::None;
    head.length = m_reply.Length();
    if (isValid && m_isHeadRequest && !answer->body().is_valid()) {
        const auto length = ContentLength(answer->headers());
        head.framing = length && MayHaveBody(head.status) ? Framing::Length : Framing::None;
        head.length = length.value_or(0);
    }
    if (m_isHeadRequest || head.framing == Framing::None) m_reply = CReplyBody();
    if (m_reply.GetFraming() == Framing::Close || m_connection.Port().IsClosed()) m_keepsAlive = false;
    head.keepsAlive = m_keepsAlive;
    head.isOldClient = m_isOldClient;
    head.AppendTo(m_connection.Output(), isValid ? answer->headers() : none, m_connection.Loop().DateField());
    m_hasPiece = m_isBlocked = false;
    m_windowStart = {};
    m_state = State::Sending;
}

CHttp1::Step CHttp1::SendReply() {
    for (int turn = 0; turn != kPiecesPerTurn; ++turn) {
        // What was sent before, 100 Continue, leaves first.
        if (m_connection.IsSending() && OnSent(m_connection.Flush()) != Step::Done) return Step::Waits;
        const bool sendsFile = m_reply.File() && m_reply.File()->Descriptor() >= 0 &&
                               m_connection.CanSendFiles() && m_reply.Remaining() > kSmallBody;
        if (!m_reply.IsComplete() && !sendsFile && !m_hasPiece) {
            const Step step = m_reply.File() ? ReadFilePart() : Pull();
            if (step != Step::Done) return step;
        }
        const auto more = sendsFile ? CConnection::More::Follows : CConnection::More::No;
        if (const Step step = OnSent(m_connection.Flush(more)); step != Step::Done) return step;
        m_hasPiece = false;
        if (m_reply.IsComplete()) return Step::Done;
        if (!sendsFile) continue;
        if (const Step step = SendFilePart(); step != Step::Done) return step;
        if (m_reply.IsComplete()) return Step::Done;
        break;
    }
    // Others have their turn after each part of a large file, and after some pieces of another body.
    m_connection.Post([this] { return Advance(m_input); });
    return Step::Waits;
}

CHttp1::Step CHttp1::OnSent(CConnection::Sent sent) {
    switch (sent) {
        case CConnection::Sent::All: return Step::Done;
        case CConnection::Sent::Blocked: m_isBlocked = true; return Step::Waits;
        case CConnection::Sent::Failed: break;
    }
    CutOff();
    return Step::Waits;
}

CHttp1::Step CHttp1::SendFilePart() {
    if (!BeginWork()) return Step::Waits;
    m_sent = CConnection::Sent::Failed;
    m_offset = m_reply.Offset();
    return DoWork(
        [this] { m_sent = m_connection.SendFile(m_reply.File()->Descriptor(), m_offset, m_reply.End()); },
        [this] {
            if (m_state == State::Closed) return Step::Waits;
            m_reply.Advance(m_offset - m_reply.Offset());
            if (m_sent == CConnection::Sent::Failed) return Abort();
            if (m_sent == CConnection::Sent::Blocked) m_connection.AwaitFile();
            return OnSent(m_sent);
        });
}

CHttp1::Step CHttp1::ReadFilePart() {
    if (!BeginWork()) return Step::Waits;
    std::string& output = m_connection.Output();
    m_offset = output.size();
    output.resize(m_offset + static_cast<std::size_t>(
                                 std::min<std::uint64_t>(m_reply.Remaining(), m_limits->sendBufferBytes)));
    return DoWork(
        [this, &output] {
            auto* next = reinterpret_cast<std::uint8_t*>(output.data()) + m_offset;
            auto* const end = reinterpret_cast<std::uint8_t*>(output.data()) + output.size();
            std::uint64_t offset = m_reply.Offset();
            while (next != end) {
                const auto count = m_reply.File()->Read(offset, {next, end});
                if (!count.IsOk() || count.Value() == 0) break;
                next += count.Value();
                offset += count.Value();
            }
            m_hasPiece = next == end;
        },
        [this, &output] {
            if (m_state == State::Closed) return Step::Waits;
            if (!m_hasPiece) return Abort();
            m_reply.Advance(output.size() - m_offset);
            return Step::Done;
        });
}

CHttp1::Step CHttp1::Pull() {
    if (!BeginWork()) return Step::Waits;
    const auto connection = m_connection.shared_from_this();
    const pplx::task<std::size_t> pulled = m_reply.Pull(m_limits->sendBufferBytes / 2);
    if (!m_connection.Loop().Resume()) {
        PostWhenPulled(pulled);
        return Step::Lost;
    }
    if (pulled.is_done()) {
        m_isBusy = false;
        return OnPulled(ResultOf(pulled));
    }
    // What is there leaves while the body waits.
    Ignore(OnSent(m_connection.Flush()));
    PostWhenPulled(pulled);
    return Step::Waits;
}

void CHttp1::PostWhenPulled(const pplx::task<std::size_t>& pulled) {
    pulled.then([this, connection = m_connection.shared_from_this()](const pplx::task<std::size_t>& done) {
        connection->Post([this, count = ResultOf(done)] {
            EndBusy();
            return OnPulled(count) != Step::Done || Advance(m_input);
        });
    });
}

CHttp1::Step CHttp1::OnPulled(std::optional<std::size_t> count) {
    if (m_state == State::Closed) return Step::Waits;
    // When the body has failed, the client must not take what it has for the whole.
    if (!count || !m_reply.Append(*count, m_connection.Output())) return Abort();
    m_hasPiece = true;
    return m_isBlocked ? Step::Waits : Step::Done;
}

void CHttp1::EndReply() {
    m_reply = CReplyBody();
    if (m_keepsAlive) {
        Enter(State::Head);
        m_isIdle = m_input.empty();
        if (!m_isIdle) return;
        m_connection.ReleaseOutput();
        std::string().swap(m_input);
    } else {
        m_connection.EndOutput();
        m_input.clear();
        m_drained = 0;
        Enter(State::Draining);
        m_connection.Read();
    }
}

void CHttp1::CutOff() {
    m_reply.Close();
    if (m_isBusy) {
        if (m_exchange) m_exchange->Abandonment().Abandon();
        m_isCut = true;
        m_connection.Break();
    } else {
        EnterClosed();
        m_connection.Close();
    }
}

void CHttp1::EnterClosed() {
    m_reply.Close();
    if (m_exchange) m_exchange->Abandonment().Abandon();
    if (m_state != State::Handling) {
        // A request that no handler has got shares in the connection's ownership.
        m_request.reset();
        m_exchange.reset();
    }
    m_state = State::Closed;
}

CHttp1::Step CHttp1::Abort() {
    EnterClosed();
    m_connection.Abort();
    return Step::Waits;
}

void CHttp1::OnStop() {
    const bool isReplying = m_state == State::Sending;
    EnterClosed();
    if (isReplying) m_connection.Abort();
    m_connection.Close();
}

void CHttp1::OnTick(std::chrono::nanoseconds now) {
    const auto elapsed = now - m_entered;
    switch (m_state) {
        case State::Head:
            if (m_isIdle || m_input.empty()) {
                const seconds limit(m_isIdle ? m_limits->keepAliveSeconds : m_limits->headSeconds);
                if (elapsed >= limit || m_connection.Port().IsClosed()) CutOff();
            } else if (elapsed >= seconds(m_limits->headSeconds)) {
                RefuseNow(status_codes::RequestTimeout);
            }
            return;
        case State::Body: {
            const auto expected = static_cast<double>(m_limits->bodyBytesPerSecond) *
                                  std::chrono::duration<double>(elapsed).count();
            if (elapsed >= kBodyGrace && static_cast<double>(m_bodyReceived) < expected)
                RefuseNow(status_codes::RequestTimeout);
            return;
        }
        case State::Handling: CheckHost(now); return CheckPeer();
        case State::Ready:
        case State::Sending:
            if (std::exchange(m_awaitsWork, false)) m_connection.Post([this] { return Advance(m_input); });
            return m_isBlocked ? CheckProgress(now) : CheckPeer();
        case State::Draining:
            if (elapsed >= seconds(m_limits->drainSeconds)) CutOff();
            return;
        case State::Closed: return;
    }
}

void CHttp1::RefuseNow(std::uint16_t status) {
    Refuse(status);
    Ignore(Advance({}));  // a refusal has no body that another thread could wait for
}

void CHttp1::CheckHost(std::chrono::nanoseconds now) {
    if (!m_host->IsClosing()) return;
    if (m_closingSince.count() == 0) m_closingSince = now;
    if (now - m_closingSince >= seconds(m_limits->stopSeconds)) m_exchange->Abandonment().Abandon();
}

void CHttp1::CheckPeer() {
    if (!m_isCut && m_connection.HasPeerLeft()) CutOff();
}

void CHttp1::CheckProgress(std::chrono::nanoseconds now) {
    const std::uint64_t acknowledged = m_connection.Acknowledged();
    const seconds window(m_limits->sendSeconds);
    if (m_windowStart.count() != 0) {
        if (now - m_windowStart < window) return;
        const auto progress = acknowledged - m_windowAcknowledged;
        if (progress < std::uint64_t{m_limits->sendBytesPerSecond} * m_limits->sendSeconds) {
            Abort();
            return;
        }
    }
    m_windowStart = now;
    m_windowAcknowledged = acknowledged;
}

}  // namespace quorbel
