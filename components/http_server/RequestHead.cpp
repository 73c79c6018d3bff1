#include "components/http_server/RequestHead.h"

#include <algorithm>
#include <array>
#include <cpprest/http_msg.h>

#include "components/http_server/HostName.h"
#include "platform/UrlPath.h"

namespace quorbel {

namespace {

using web::http::status_codes;

using Field = CRequestHead::CField;

using CharacterSet = std::array<bool, 256>;

constexpr CharacterSet MakeTokenCharacters() {
    CharacterSet set{};
    for (int i = '0'; i <= '9'; ++i) set[i] = true;
    for (int i = 'a'; i <= 'z'; ++i) set[i] = set[i - 32] = true;
    for (char character : std::string_view("!#$%&'*+-.^_`|~"))
        set[static_cast<unsigned char>(character)] = true;
    return set;
}

constexpr CharacterSet MakeRange(int first, bool withTab) {
    CharacterSet set{};
    for (int i = first; i < 256; ++i) set[i] = i != 0x7F;
    set['\t'] = withTab;
    return set;
}

constexpr CharacterSet kTokenCharacters = MakeTokenCharacters();
constexpr CharacterSet kValueCharacters = MakeRange(0x20, true);
constexpr CharacterSet kTargetCharacters = MakeRange(0x21, false);

bool AllIn(std::string_view text, const CharacterSet& set) noexcept {
    return std::all_of(text.begin(), text.end(),
                       [&set](char character) { return set[static_cast<unsigned char>(character)]; });
}

bool IsBlank(char character) noexcept {
    return character == ' ' || character == '\t';
}

std::string_view Trim(std::string_view text) noexcept {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

/// Calls `take` with each element of a comma-separated list (RFC 9110, section 5.6.1), empty ones excepted.
template <class Take>
void ForEachElement(std::string_view list, const Take& take) {
    while (!list.empty()) {
        const std::size_t comma = std::min(list.find(','), list.size());
        const std::string_view element = Trim(list.substr(0, comma));
        if (!element.empty()) take(element);
        list.remove_prefix(std::min(comma + 1, list.size()));
    }
}

/// "HTTP/1.n"; the status that refuses any other version, else 0.
std::uint16_t ParseVersion(std::string_view text, CRequestHead& head) noexcept {
    const auto isDigit = [](char character) { return character >= '0' && character <= '9'; };
    if (text.size() != 8 || !text.starts_with("HTTP/") || text[6] != '.' || !isDigit(text[5]) ||
        !isDigit(text[7])) {
        return status_codes::BadRequest;
    }
    if (text[5] != '1') return status_codes::HttpVersionNotSupported;
    head.minorVersion = text[7] == '0' ? 0 : 1;
    return 0;
}

/// The authority and scheme of an absolute-form target, which are taken off it.
bool TakeAuthority(std::string_view& target, CRequestHead& head) noexcept {
    const std::size_t colon = target.find("://");
    if (colon == std::string_view::npos) return false;
    if (EqualsLower(target.substr(0, colon), "http")) {
        head.scheme = CRequestHead::Scheme::Http;
    } else if (EqualsLower(target.substr(0, colon), "https")) {
        head.scheme = CRequestHead::Scheme::Https;
    } else {
        return false;
    }
    target.remove_prefix(colon + 3);
    const std::size_t end = std::min(target.find_first_of("/?"), target.size());
    head.authority = target.substr(0, end);
    target.remove_prefix(end);
    return IsAuthority(head.authority);
}

bool ParseTarget(std::string_view target, CRequestHead& head) {
    if (target.empty() || !AllIn(target, kTargetCharacters)) return false;
    if (target.find('#') != std::string_view::npos) return false;
    if (head.method == "CONNECT") {
        head.target = CRequestHead::Target::Authority;
        head.authority = target;
        // Without a port there is nothing to connect to (RFC 9110, section 9.3.6).
        const std::size_t colon = target.rfind(':');
        return IsAuthority(target) && !target.ends_with(']') && colon < target.size() - 1;
    }
    if (target == "*") {
        head.target = CRequestHead::Target::Asterisk;
        head.path = target;
        return head.method == "OPTIONS";
    }
    if (target.front() != '/' && !TakeAuthority(target, head)) return false;
    if (target.empty() && head.method == "OPTIONS") {
        // The absolute form of the asterisk (RFC 9112, section 3.2.4).
        head.target = CRequestHead::Target::Asterisk;
        head.path = "*";
        return true;
    }
    const std::size_t question = std::min(target.find('?'), target.size());
    head.path = question == 0 ? std::string_view("/") : target.substr(0, question);
    head.query = question == target.size() ? std::string_view() : target.substr(question + 1);
    return head.query.find('%') == std::string_view::npos || PercentDecode(head.query).has_value();
}

std::uint16_t ParseRequestLine(std::string_view line, CRequestHead& head) {
    const std::size_t first = line.find(' ');
    const std::size_t second = first == std::string_view::npos ? first : line.find(' ', first + 1);
    if (second == std::string_view::npos) return status_codes::BadRequest;
    head.method = line.substr(0, first);
    if (!IsToken(head.method)) return status_codes::BadRequest;
    if (const std::uint16_t refusal = ParseVersion(line.substr(second + 1), head)) return refusal;
    return ParseTarget(line.substr(first + 1, second - first - 1), head) ? 0 : status_codes::BadRequest;
}

/// What the fields together say of the request's framing and routing.
class CFraming {
 public:
    /// Takes note of a field; the status that refuses it, else 0.
    std::uint16_t Take(const Field& field) {
        switch (field.name.size()) {
            case 4: return EqualsLower(field.name, "host") ? TakeHost(field.value) : 0;
            case 6:
                if (EqualsLower(field.name, "expect")) TakeExpect(field.value);
                return 0;
            case 10:
                if (EqualsLower(field.name, "connection")) TakeConnection(field.value);
                return 0;
            case 14: return EqualsLower(field.name, "content-length") ? TakeLength(field.value) : 0;
            case 17:
                if (EqualsLower(field.name, "transfer-encoding")) TakeCodings(field.value);
                return 0;
        }
        return 0;
    }

    std::uint16_t Apply(CRequestHead& head, const CHttpLimits& limits) const {
        const bool isOld = head.minorVersion == 0;
        if (!m_hasHost && !isOld) return status_codes::BadRequest;
        if (head.authority.empty()) head.authority = m_host;
        if (const std::uint16_t refusal = ApplyCodings(head)) return refusal;
        head.contentLength = m_length;
        if (m_length > limits.bodyBytes) return status_codes::RequestEntityTooLarge;
        head.keepsAlive = !m_saysClose && (!isOld || m_saysKeepAlive);
        head.expectsContinue = m_expectsContinue && !isOld;
        return m_expectsOther ? status_codes::ExpectationFailed : 0;
    }

 private:
    std::uint16_t TakeHost(std::string_view value) noexcept {
        if (m_hasHost || !IsAuthority(value)) return status_codes::BadRequest;
        m_hasHost = true;
        m_host = value;
        return 0;
    }

    void TakeExpect(std::string_view value) {
        ForEachElement(value, [this](std::string_view expectation) {
            (EqualsLower(expectation, "100-continue") ? m_expectsContinue : m_expectsOther) = true;
        });
    }

    void TakeConnection(std::string_view value) {
        ForEachElement(value, [this](std::string_view option) {
            if (EqualsLower(option, "close")) m_saysClose = true;
            if (EqualsLower(option, "keep-alive")) m_saysKeepAlive = true;
        });
    }

    std::uint16_t TakeLength(std::string_view value) noexcept {
        const auto isDigit = [](char character) { return character >= '0' && character <= '9'; };
        if (m_hasLength || value.empty() || !std::all_of(value.begin(), value.end(), isDigit)) {
            return status_codes::BadRequest;
        }
        m_hasLength = true;
        constexpr std::uint64_t kHuge = 1ull << 60;
        for (char digit : value) m_length = std::min(m_length * 10 + (digit - '0'), kHuge);
        return 0;
    }

    void TakeCodings(std::string_view value) {
        m_hasCodings = true;
        ForEachElement(value, [this](std::string_view coding) {
            m_endsChunked = EqualsLower(coding, "chunked");
            ++(m_endsChunked ? m_chunkedCount : m_otherCount);
        });
    }

    std::uint16_t ApplyCodings(CRequestHead& head) const noexcept {
        if (!m_hasCodings) return 0;
        if (m_hasLength || head.minorVersion == 0) return status_codes::BadRequest;
        if (m_chunkedCount != 1 || !m_endsChunked) return status_codes::BadRequest;
        if (m_otherCount != 0) return status_codes::NotImplemented;
        head.isChunked = true;
        return 0;
    }

    std::string_view m_host;
    std::uint64_t m_length = 0;
    int m_chunkedCount = 0;
    int m_otherCount = 0;
    bool m_hasHost = false;
    bool m_hasLength = false;
    bool m_hasCodings = false;
    bool m_endsChunked = false;
    bool m_saysClose = false;
    bool m_saysKeepAlive = false;
    bool m_expectsContinue = false;
    bool m_expectsOther = false;
};

/// The header section, which ends with an empty line.
std::uint16_t ParseFields(std::string_view lines, CRequestHead& head, const CHttpLimits& limits) {
    CFraming framing;
    for (;;) {
        const std::size_t end = lines.find("\r\n");
        if (end == 0) return framing.Apply(head, limits);
        Field field;
        if (!ParseField(lines.substr(0, end), field)) return status_codes::BadRequest;
        if (const std::uint16_t refusal = framing.Take(field)) return refusal;
        head.fields.push_back(field);
        lines.remove_prefix(end + 2);
    }
}

}  // namespace

bool IsToken(std::string_view text) noexcept {
    return !text.empty() && AllIn(text, kTokenCharacters);
}

bool IsFieldValue(std::string_view text) noexcept {
    return AllIn(text, kValueCharacters);
}

bool EqualsLower(std::string_view text, std::string_view lower) noexcept {
    if (text.size() != lower.size()) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char character = text[i];
        if ((character >= 'A' && character <= 'Z' ? character + 32 : character) != lower[i]) return false;
    }
    return true;
}

bool ParseField(std::string_view line, Field& field) noexcept {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) return false;
    field = {line.substr(0, colon), Trim(line.substr(colon + 1))};
    // A folded line begins with a blank, which is no token character either.
    return IsToken(field.name) && IsFieldValue(field.value);
}

void CRequestHeadParser::Reset() noexcept {
    m_scanned = m_lineStart = m_requestLine = m_headerStart = m_fieldCount = 0;
    m_refusal = 0;
    std::vector<Field> fields = std::move(m_head.fields);
    fields.clear();
    m_head = CRequestHead();
    m_head.fields = std::move(fields);
}

CRequestHeadParser::Progress CRequestHeadParser::Refuse(std::uint16_t status) noexcept {
    m_refusal = status;
    return Progress::Refused;
}

CRequestHeadParser::Progress CRequestHeadParser::Parse(std::string_view input, const CHttpLimits& limits) {
    const Progress scanned = Scan(input, limits);
    if (scanned != Progress::Complete) return scanned;
    const std::string_view line = input.substr(m_requestLine, m_headerStart - 2 - m_requestLine);
    if (const std::uint16_t refusal = ParseRequestLine(line, m_head)) return Refuse(refusal);
    const std::string_view fields = input.substr(m_headerStart, m_scanned - m_headerStart);
    if (const std::uint16_t refusal = ParseFields(fields, m_head, limits)) return Refuse(refusal);
    return Progress::Complete;
}

std::uint16_t CRequestHeadParser::TooLong(std::size_t lineLength, const CHttpLimits& limits) const noexcept {
    // The length counts the CR before the LF, which may have come or not.
    if (m_headerStart == 0)
        return lineLength > limits.requestLineBytes + 1 ? status_codes::RequestUriTooLarge : 0;
    const std::size_t total = m_lineStart - m_headerStart + lineLength + 1;
    return total > limits.headerBytes + 2 || m_fieldCount > limits.headerFields
               ? status_codes::RequestHeaderFieldsTooLarge
               : 0;
}

CRequestHeadParser::Progress CRequestHeadParser::Scan(std::string_view input, const CHttpLimits& limits) {
    for (;;) {
        const std::size_t end = input.find('\n', m_scanned);
        const std::size_t lineEnd = std::min(end, input.size());
        if (const std::uint16_t refusal = TooLong(lineEnd - m_lineStart, limits)) return Refuse(refusal);
        m_scanned = lineEnd;
        if (end == std::string_view::npos) return Progress::Incomplete;
        if (end == m_lineStart || input[end - 1] != '\r') return Refuse(status_codes::BadRequest);
        const bool isEmpty = end == m_lineStart + 1;
        m_scanned = m_lineStart = end + 1;
        if (m_headerStart != 0) {
            if (isEmpty) return Progress::Complete;
            ++m_fieldCount;
        } else if (!isEmpty) {
            m_headerStart = m_lineStart;
        } else if (m_requestLine == 0) {
            m_requestLine = m_lineStart;  // one empty line may precede a request (RFC 9112, section 2.2)
        } else {
            return Refuse(status_codes::BadRequest);
        }
    }
}

}  // namespace quorbel
