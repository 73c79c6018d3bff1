#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace quorbel {

/// The path of a request target (RFC 3986, section 3.3), checked and resolved: it begins with "/", is valid
/// text without control characters, has only "/" as separator and no dot segment, so that appended to a
/// folder it never names anything outside that folder. The asterisk form (RFC 9112, section 3.2.4) is the one
/// other value.
class CUrlPath {
 public:
    enum class Refusal {
        Malformed,  ///< climbs out, holds a NUL, a control character, invalid UTF-8 or a bad percent sign
                    ///< (400)
        TooLong     ///< longer than kMaximumLength bytes (414)
    };
    static constexpr std::size_t kMaximumLength = 8192;

    /// Decodes percent signs once, then takes "\" for "/" and resolves dot segments. An empty path is "/".
    static std::variant<CUrlPath, Refusal> Parse(std::string_view encoded);

    /// True for a path that stands for itself: Encoded of what Parse makes of it is the same text. Says false
    /// of some that do, too.
    static bool IsPlain(std::string_view encoded) noexcept;

    /// The decoded path.
    const std::wstring& Text() const noexcept { return m_text; }
    /// The canonical percent-encoded form: Parse of it gives the same path again.
    std::string Encoded() const;

 private:
    explicit CUrlPath(std::wstring text) noexcept : m_text(std::move(text)) {}
    std::wstring m_text;
};

/// Appends a byte in its percent-encoded form (RFC 3986, section 2.1).
void AppendPercentEncoded(std::string& text, char byte);

/// Decodes percent signs (RFC 3986, section 2.1); none for a bad one.
std::optional<std::string> PercentDecode(std::string_view encoded);

/// Says whether `path` begins, as text, with `folder` and what follows cannot leave that folder again: it
/// holds no NUL and no dot segment; "\" and "/" both separate.
bool StaysWithin(std::wstring_view folder, std::wstring_view path) noexcept;

}  // namespace quorbel
