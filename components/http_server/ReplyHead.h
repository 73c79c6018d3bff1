#pragma once

#include <cpprest/http_msg.h>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorbel {

/// How a reply's body is delimited (RFC 9112, section 6.3).
enum class Framing {
    None,    ///< the reply has no body
    Length,  ///< Content-Length
    Chunked,
    Close  ///< until the connection ends
};

/// A reply as HTTP/1.1 sends it.
struct CReplyHead {
    std::uint16_t status = 500;
    Framing framing = Framing::None;
    std::uint64_t length = 0;  ///< of a body of known length
    bool keepsAlive = true;
    bool isOldClient = false;  ///< who must be told that the connection stays

    /// The status line and the fields, the empty line included. Of the handler's fields those are left out
    /// that the connection decides.
    void AppendTo(std::string& output, const web::http::http_headers& fields,
                  std::string_view dateField) const;
};

/// True when every field can be sent (RFC 9110, section 5): no name or value that would break the head.
bool AreValidFields(const web::http::http_headers& fields) noexcept;
/// The value of Content-Length; none when there is none or it is no number.
std::optional<std::uint64_t> ContentLength(const web::http::http_headers& fields);
/// False for replies that never have a body (RFC 9110, section 6.4.1).
bool MayHaveBody(std::uint16_t status) noexcept;

}  // namespace quorbel
