#include "components/http_server/ReplyHead.h"

#include <boost/beast/http/status.hpp>
#include <charconv>

#include "components/http_server/RequestHead.h"

namespace quorbel {

namespace {

void AppendNumber(std::string& output, std::uint64_t number) {
    char digits[20];
    output.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

/// Fields that only the connection knows.
bool IsOurs(std::string_view name) noexcept {
    switch (name.size()) {
        case 4: return EqualsLower(name, "date");
        case 7: return EqualsLower(name, "upgrade") || EqualsLower(name, "trailer");
        case 10: return EqualsLower(name, "connection") || EqualsLower(name, "keep-alive");
        case 14: return EqualsLower(name, "content-length");
        case 17: return EqualsLower(name, "transfer-encoding");
    }
    return false;
}

}  // namespace

void CReplyHead::AppendTo(std::string& output, const web::http::http_headers& fields,
                          std::string_view dateField) const {
    const auto reason = boost::beast::http::obsolete_reason(boost::beast::http::int_to_status(status));
    output.append("HTTP/1.1 ");
    AppendNumber(output, status);
    output.append(" ").append(reason.data(), reason.size()).append("\r\n").append(dateField);
    for (const auto& [name, value] : fields) {
        if (!IsOurs(name)) output.append(name).append(": ").append(value).append("\r\n");
    }
    if (framing == Framing::Chunked) {
        output.append("Transfer-Encoding: chunked\r\n");
    } else if (framing == Framing::Length) {
        AppendNumber(output.append("Content-Length: "), length);
        output.append("\r\n");
    }
    if (!keepsAlive) {
        output.append("Connection: close\r\n");
    } else if (isOldClient) {
        output.append("Connection: keep-alive\r\n");
    }
    output.append("\r\n");
}

bool AreValidFields(const web::http::http_headers& fields) noexcept {
    return std::all_of(fields.begin(), fields.end(),
                       [](const auto& field) { return IsToken(field.first) && IsFieldValue(field.second); });
}

std::optional<std::uint64_t> ContentLength(const web::http::http_headers& fields) {
    const auto field = fields.find(web::http::header_names::content_length);
    if (field == fields.end()) return std::nullopt;
    std::uint64_t length = 0;
    const char* const end = field->second.data() + field->second.size();
    const auto parsed = std::from_chars(field->second.data(), end, length);
    if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
    return length;
}

bool MayHaveBody(std::uint16_t status) noexcept {
    return status >= 200 && status != 204 && status != 304;
}

}  // namespace quorbel
