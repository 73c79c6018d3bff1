#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "components/http_server/RequestHead.h"

namespace quorbel {

/// Takes a request's body (RFC 9112, sections 6 and 7.1) out of the bytes that follow its head, of known
/// length or chunked. Trailers are checked and dropped.
class CBodyDecoder {
 public:
    enum class Progress { Incomplete, Complete, Refused };

    /// Makes ready for the body that `head` announces.
    void Reset(const CRequestHead& head) noexcept;
    /// Appends what the input holds of the body to `body` and takes all that belongs to the request off the
    /// input's front. The verdict does not depend on how the input is cut.
    Progress Take(std::string_view& input, std::string& body, const CHttpLimits& limits);
    /// The status that says why the body was refused.
    std::uint16_t Refusal() const noexcept { return m_refusal; }

 private:
    enum class Phase { Content, ChunkSize, ChunkEnd, Trailer, Done };

    Progress Refuse(std::uint16_t status) noexcept;
    /// Moves bytes of the current line to m_line; true once its end has been taken too, false without it or
    /// with m_refusal set: to `tooLong` for a line of more than `longest` bytes.
    bool TakeLine(std::string_view& input, std::size_t longest, std::uint16_t tooLong);
    bool ParseChunkSize(const CHttpLimits& limits, std::size_t bodySize) noexcept;

    Phase m_phase = Phase::Done;
    bool m_isChunked = false;
    std::uint64_t m_remaining = 0;     // bytes of the body, or of the current chunk
    std::size_t m_extensionBytes = 0;  // of all chunks
    std::size_t m_trailerBytes = 0;
    std::string m_line;
    std::uint16_t m_refusal = 0;
};

}  // namespace quorbel
