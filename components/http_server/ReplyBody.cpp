#include "components/http_server/ReplyBody.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace quorbel {

namespace {

constexpr std::size_t kFirstPiece = 8192;  ///< bytes

}  // namespace

CReplyBody::CReplyBody(const web::http::http_response& response, bool canChunk)
    : m_framing(canChunk ? Framing::Chunked : Framing::Close), m_remaining(UINT64_MAX) {
    m_stream = response.body().streambuf();
    const auto length = ContentLength(response.headers());
    if (length) {
        m_framing = Framing::Length;
        m_length = m_remaining = *length;
    }
    const auto* range = dynamic_cast<const IFileRange*>(m_stream.get_base().get());
    if (!range || (length && *length > range->Length())) return;
    m_framing = Framing::Length;
    m_length = m_remaining = length.value_or(range->Length());
    m_offset = range->Offset();
    m_file = range->File();
    m_stream = {};
}

CReplyBody& CReplyBody::operator=(CReplyBody&& other) noexcept {
    Close();
    m_framing = other.m_framing;
    m_length = other.m_length;
    m_remaining = other.m_remaining;
    m_file = std::move(other.m_file);
    m_offset = other.m_offset;
    // The library's stream buffers know no move.
    m_stream = std::exchange(other.m_stream, {});
    m_piece = std::move(other.m_piece);
    return *this;
}

void CReplyBody::Advance(std::uint64_t count) noexcept {
    m_offset += count;
    m_remaining -= count;
}

pplx::task<std::size_t> CReplyBody::Pull(std::size_t most) {
    // Most bodies are small: memory for a large piece is made for those that turn out not to be.
    const std::size_t size = std::min(most, std::max(kFirstPiece, 2 * m_piece.size()));
    m_piece.resize(static_cast<std::size_t>(std::min<std::uint64_t>(size, m_remaining)));
    try {
        return m_stream.getn(m_piece.data(), m_piece.size());
    } catch (const std::exception&) {
        return pplx::task_from_exception<std::size_t>(std::current_exception());
    }
}

bool CReplyBody::Append(std::size_t count, std::string& output) {
    if (m_framing == Framing::Length) {
        if (count == 0) return false;
        m_remaining -= count;
    } else if (count == 0) {
        m_remaining = 0;
    }
    const char* const bytes = reinterpret_cast<const char*>(m_piece.data());
    if (m_framing != Framing::Chunked) {
        output.append(bytes, count);
        return true;
    }
    std::array<char, 24> size{};
    std::snprintf(size.data(), size.size(), "%zx\r\n", count);
    output.append(size.data()).append(bytes, count).append("\r\n");
    // A stream that knows its end need not be asked again: the last chunk leaves with what is there.
    if (m_remaining != 0 && m_stream.is_eof()) {
        m_remaining = 0;
        output.append("0\r\n\r\n");
    }
    return true;
}

void CReplyBody::Close() noexcept {
    if (!m_stream) return;
    try {
        m_stream.close(std::ios_base::in).then([](const pplx::task<void>& closed) {
            try {
                closed.get();
            } catch (const std::exception&) {
                // The stream's owner knows what is wrong with it.
            }
        });
    } catch (const std::exception&) {
        // Nor is there anything to be done here.
    }
}

}  // namespace quorbel
