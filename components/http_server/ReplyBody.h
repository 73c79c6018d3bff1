#pragma once

#include <cpprest/http_msg.h>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "components/http_server/ReplyHead.h"
#include "platform/FileRange.h"

namespace quorbel {

/// The body of one reply: a part of a file, or a stream that is pulled as the client reads.
class CReplyBody {
 public:
    /// No body: of length 0 where the status allows one.
    explicit CReplyBody(Framing framing = Framing::None) noexcept : m_framing(framing) {}
    /// The body of a response that may have one. `canChunk` is false for clients that do not know chunks.
    CReplyBody(const web::http::http_response& response, bool canChunk);
    ~CReplyBody() { Close(); }
    CReplyBody(CReplyBody&& other) noexcept { *this = std::move(other); }
    CReplyBody& operator=(CReplyBody&& other) noexcept;

    Framing GetFraming() const noexcept { return m_framing; }
    /// Of a body of known length; bytes.
    std::uint64_t Length() const noexcept { return m_length; }
    /// Nothing is left to be sent.
    bool IsComplete() const noexcept { return m_remaining == 0; }
    /// Bytes that are left; of unknown number without a length.
    std::uint64_t Remaining() const noexcept { return m_remaining; }

    /// The file whose bytes from Offset to End are left to be sent; null for a stream.
    const CFile* File() const noexcept { return m_file.get(); }
    std::uint64_t Offset() const noexcept { return m_offset; }
    std::uint64_t End() const noexcept { return m_offset + m_remaining; }
    /// So many bytes of the file have been taken.
    void Advance(std::uint64_t count) noexcept;

    /// Reads on in the stream, up to `most` bytes; the task gives their number, 0 at its end, or why it
    /// failed.
    pplx::task<std::size_t> Pull(std::size_t most);
    /// Appends what was pulled, framed. False when the stream ended before its length.
    [[nodiscard]] bool Append(std::size_t count, std::string& output);

    /// Closes the stream, so that its owner knows that nobody reads it any more. From any thread.
    void Close() noexcept;

 private:
    Framing m_framing;
    std::uint64_t m_length = 0;
    std::uint64_t m_remaining = 0;  // without a length: not 0 before the end
    std::shared_ptr<const CFile> m_file;
    std::uint64_t m_offset = 0;
    concurrency::streams::streambuf<std::uint8_t> m_stream;
    std::vector<std::uint8_t> m_piece;
};

}  // namespace quorbel
