#include "components/http_server/BodyDecoder.h"

#include <algorithm>
#include <cpprest/http_msg.h>

#include "platform/Text.h"

namespace quorbel {

namespace {

using web::http::status_codes;

/// A chunk's size and extensions take no more; all chunks' extensions together neither.
constexpr std::size_t kLongestChunkLine = 1024;
constexpr std::size_t kMostExtensionBytes = 8192;

void SkipBlanks(std::string_view& text) noexcept {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
}

bool Skip(std::string_view& text, char expected) noexcept {
    if (!text.starts_with(expected)) return false;
    text.remove_prefix(1);
    return true;
}

bool SkipToken(std::string_view& text) noexcept {
    std::size_t length = 0;
    while (length < text.size() && IsToken(text.substr(length, 1))) ++length;
    text.remove_prefix(length);
    return length != 0;
}

/// RFC 9110, section 5.6.4; of text without control characters.
bool SkipQuotedString(std::string_view& text) noexcept {
    if (!Skip(text, '"')) return false;
    while (!text.empty()) {
        if (Skip(text, '"')) return true;
        if (Skip(text, '\\') && text.empty()) return false;
        text.remove_prefix(1);
    }
    return false;
}

/// RFC 9112, section 7.1.1.
bool AreExtensions(std::string_view text) noexcept {
    if (!IsFieldValue(text)) return false;
    while (!text.empty()) {
        SkipBlanks(text);
        if (!Skip(text, ';')) return false;
        SkipBlanks(text);
        if (!SkipToken(text)) return false;
        std::string_view value = text;
        SkipBlanks(value);
        if (!Skip(value, '=')) continue;
        SkipBlanks(value);
        if (!SkipToken(value) && !SkipQuotedString(value)) return false;
        text = value;
    }
    return true;
}

}  // namespace

void CBodyDecoder::Reset(const CRequestHead& head) noexcept {
    m_isChunked = head.isChunked;
    m_phase = m_isChunked ? Phase::ChunkSize : Phase::Content;
    m_remaining = head.contentLength;
    m_extensionBytes = m_trailerBytes = 0;
    std::string().swap(m_line);
    m_refusal = 0;
}

CBodyDecoder::Progress CBodyDecoder::Refuse(std::uint16_t status) noexcept {
    m_refusal = status;
    return Progress::Refused;
}

bool CBodyDecoder::TakeLine(std::string_view& input, std::size_t longest, std::uint16_t tooLong) {
    while (!input.empty()) {
        const char byte = input.front();
        input.remove_prefix(1);
        const bool endsWithReturn = !m_line.empty() && m_line.back() == '\r';
        if (endsWithReturn != (byte == '\n')) {
            m_refusal = status_codes::BadRequest;
            return false;
        }
        if (m_line.size() > longest + 1) {
            m_refusal = tooLong;
            return false;
        }
        if (byte == '\n') {
            m_line.pop_back();
            return true;
        }
        m_line.push_back(byte);
    }
    return false;
}

bool CBodyDecoder::ParseChunkSize(const CHttpLimits& limits, std::size_t bodySize) noexcept {
    std::string_view line = m_line;
    std::size_t digits = 0;
    std::uint64_t size = 0;
    for (; digits < line.size(); ++digits) {
        const int digit = HexDigit(static_cast<unsigned char>(line[digits]));
        if (digit < 0) break;
        size = std::min<std::uint64_t>(size * 16 + static_cast<std::uint64_t>(digit), 1ull << 56);
    }
    line.remove_prefix(digits);
    m_extensionBytes += line.size();
    if (digits == 0 || digits > 16 || !AreExtensions(line) || m_extensionBytes > kMostExtensionBytes) {
        m_refusal = status_codes::BadRequest;
    } else if (size > limits.bodyBytes || bodySize + size > limits.bodyBytes) {
        m_refusal = status_codes::RequestEntityTooLarge;
    }
    m_remaining = size;
    return m_refusal == 0;
}

CBodyDecoder::Progress CBodyDecoder::Take(std::string_view& input, std::string& body,
                                          const CHttpLimits& limits) {
    for (;;) {
        switch (m_phase) {
            case Phase::Content: {
                const auto count =
                    static_cast<std::size_t>(std::min<std::uint64_t>(m_remaining, input.size()));
                body.append(input.substr(0, count));
                input.remove_prefix(count);
                m_remaining -= count;
                if (m_remaining != 0) return Progress::Incomplete;
                m_phase = m_isChunked ? Phase::ChunkEnd : Phase::Done;
                break;
            }
            case Phase::ChunkSize:
                if (!TakeLine(input, kLongestChunkLine, status_codes::BadRequest)) break;
                if (!ParseChunkSize(limits, body.size())) break;
                m_phase = m_remaining == 0 ? Phase::Trailer : Phase::Content;
                m_line.clear();
                continue;
            case Phase::ChunkEnd:
                if (!TakeLine(input, 0, status_codes::BadRequest)) break;
                m_phase = Phase::ChunkSize;
                m_line.clear();
                continue;
            case Phase::Trailer: {
                if (!TakeLine(input, limits.headerBytes, status_codes::RequestHeaderFieldsTooLarge)) break;
                CRequestHead::CField field;
                m_trailerBytes += m_line.size() + 2;
                if (m_line.empty()) {
                    m_phase = Phase::Done;
                } else if (!ParseField(m_line, field)) {
                    m_refusal = status_codes::BadRequest;
                } else if (m_trailerBytes > limits.headerBytes) {
                    m_refusal = status_codes::RequestHeaderFieldsTooLarge;
                }
                m_line.clear();
                break;
            }
            case Phase::Done: return Progress::Complete;
        }
        if (m_refusal != 0) return Refuse(m_refusal);
        if (m_phase == Phase::Done) return Progress::Complete;
        if (input.empty()) return Progress::Incomplete;
    }
}

}  // namespace quorbel
