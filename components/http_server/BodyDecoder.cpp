#include "components/http_server/BodyDecoder.h"

#include <algorithm>

#include "platform/Text.h"

namespace quorbel {

namespace {

constexpr std::uint16_t kBadRequest = 400;
constexpr std::uint16_t kPayloadTooLarge = 413;
constexpr std::uint16_t kHeaderTooLarge = 431;

/// A chunk's size and extensions take no more; all chunks' extensions together neither.
constexpr std::size_t kLongestChunkLine = 1024;
constexpr std::size_t kMostExtensionBytes = 8192;

}  // namespace

void CBodyDecoder::Reset(const CRequestHead& head) noexcept {
    m_isChunked = head.isChunked;
    m_phase = m_isChunked ? Phase::ChunkSize : Phase::Content;
    m_remaining = head.contentLength;
    m_extensionBytes = m_trailerBytes = 0;
    m_line.clear();
    m_refusal = 0;
}

CBodyDecoder::Progress CBodyDecoder::Refuse(std::uint16_t status) noexcept {
    m_refusal = status;
    return Progress::Refused;
}

bool CBodyDecoder::TakeLine(std::string_view& input, std::size_t longest) noexcept {
    while (!input.empty()) {
        const char byte = input.front();
        input.remove_prefix(1);
        const bool endsWithReturn = !m_line.empty() && m_line.back() == '\r';
        if (endsWithReturn != (byte == '\n') || m_line.size() > longest + 1) {
            m_refusal = kBadRequest;
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
    const std::size_t semicolon = line.find_first_not_of(" \t");
    const bool hasExtension = semicolon != std::string_view::npos && line[semicolon] == ';';
    if (digits == 0 || digits > 16 || (!line.empty() && !hasExtension) || !IsFieldValue(line) ||
        m_extensionBytes > kMostExtensionBytes) {
        m_refusal = kBadRequest;
    } else if (size > limits.bodyBytes || bodySize + size > limits.bodyBytes) {
        m_refusal = kPayloadTooLarge;
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
                if (!TakeLine(input, kLongestChunkLine)) break;
                if (!ParseChunkSize(limits, body.size())) break;
                m_phase = m_remaining == 0 ? Phase::Trailer : Phase::Content;
                m_line.clear();
                continue;
            case Phase::ChunkEnd:
                if (!TakeLine(input, 0)) break;
                m_phase = Phase::ChunkSize;
                m_line.clear();
                continue;
            case Phase::Trailer: {
                if (!TakeLine(input, limits.headerBytes)) break;
                CRequestHead::CField field;
                m_trailerBytes += m_line.size();
                if (m_line.empty()) {
                    m_phase = Phase::Done;
                } else if (!ParseField(m_line, field)) {
                    m_refusal = kBadRequest;
                } else if (m_trailerBytes > limits.headerBytes) {
                    m_refusal = kHeaderTooLarge;
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
