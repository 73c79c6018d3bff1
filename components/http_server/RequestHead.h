#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "components/http_server/Limits.h"

namespace quorbel {

/// A request's head (RFC 9112, sections 3 and 5), checked. The views are of the input that it was parsed
/// from.
struct CRequestHead {
    struct CField {
        std::string_view name;
        std::string_view value;  ///< without blanks around it
    };
    enum class Target {
        Path,      ///< origin-form or absolute-form
        Asterisk,  ///< of OPTIONS
        Authority  ///< of CONNECT
    };
    enum class Scheme { None, Http, Https };

    std::string_view method;
    Target target = Target::Path;
    std::string_view path;         ///< begins with "/" unless the target is an asterisk or an authority
    std::string_view query;        ///< without "?"; its percent signs are good
    Scheme scheme = Scheme::None;  ///< of an absolute-form target
    std::string_view
        authority;  ///< host[:port] of the target, else of the Host field; empty for neither (HTTP/1.0)
    int minorVersion = 1;  ///< of HTTP/1
    std::vector<CField> fields;

    std::uint64_t contentLength = 0;
    bool isChunked = false;
    bool keepsAlive = true;  ///< the client wants to go on with this connection
    bool expectsContinue = false;
};

/// Parses the head of an HTTP/1 request that arrives piece by piece. It accepts exactly what RFC 9110 and RFC
/// 9112 allow to be sent, so that nobody on the way can understand a request otherwise than we do.
class CRequestHeadParser {
 public:
    enum class Progress { Incomplete, Complete, Refused };

    /// `input` begins with the head's first byte and holds all that came since Reset; what was there in an
    /// earlier call is still there. The verdict does not depend on how the input is cut.
    Progress Parse(std::string_view input, const CHttpLimits& limits);

    /// Of a complete head; its views are those of the input.
    const CRequestHead& Head() const noexcept { return m_head; }
    /// Bytes of the complete head, its empty line included.
    std::size_t Length() const noexcept { return m_scanned; }
    /// The status that says why the head was refused.
    std::uint16_t Refusal() const noexcept { return m_refusal; }
    /// Makes ready for the next head.
    void Reset() noexcept;

 private:
    Progress Refuse(std::uint16_t status) noexcept;
    /// Finds the lines' ends, within the limits; complete at the empty line.
    Progress Scan(std::string_view input, const CHttpLimits& limits);
    std::uint16_t TooLong(std::size_t lineLength, const CHttpLimits& limits) const noexcept;

    std::size_t m_scanned = 0;  // what lies before holds no unseen line end
    std::size_t m_lineStart = 0;
    std::size_t m_requestLine = 0;  // where it begins
    std::size_t m_headerStart = 0;  // where the fields begin; 0 before the request line has ended
    std::size_t m_fieldCount = 0;
    std::uint16_t m_refusal = 0;
    CRequestHead m_head;
};

/// RFC 9110, section 5.6.2.
bool IsToken(std::string_view text) noexcept;
/// RFC 9110, section 5.5, without blanks around it; empty is valid.
bool IsFieldValue(std::string_view text) noexcept;
/// Takes one line of a header or trailer section, without its line end, apart; false when it is none.
bool ParseField(std::string_view line, CRequestHead::CField& field) noexcept;
/// ASCII text without regard to case; `lower` is in lower case.
bool EqualsLower(std::string_view text, std::string_view lower) noexcept;

}  // namespace quorbel
