#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "components/search/text/TextExtractor.h"
#include "platform/FileDescriptor.h"

namespace quorbel {

/// What goes between the service and the process that reads files for it.
///
/// They share a socket that keeps messages apart (SOCK_SEQPACKET). The process says first whether it works:
/// Ready, or Refused and why. A request is one byte, the format, with two descriptors: the file, and the pipe
/// into which the answer goes. Once nothing more will come through the pipe, the process says Ended with the
/// status (wait(2), 4 bytes, little-endian) of the child that read the file.
///
/// The answer in the pipe is four lengths (4 bytes each, little-endian) and the bytes of text, title, author
/// and problem, and nothing behind them.

/// The descriptor at which the process finds its socket.
inline constexpr int kWorkerSocket = 3;

enum class WorkerMessage : char { Ready = 'R', Refused = 'X', Ended = 'E' };

inline constexpr std::size_t kLargestWorkerMessage = 512;
inline constexpr std::size_t kAnswerHead = 16;
inline constexpr std::size_t kLargestAnswer = kAnswerHead + kLargestText + 3 * kLargestProperty;

/// Cuts off what is too long, but for the text, for which a problem then stands.
std::string EncodeAnswer(const CExtractedText& result);
/// None unless every length is within its bound and all is valid UTF-8 without NUL.
std::optional<CExtractedText> DecodeAnswer(std::string_view answer);

/// A message of the process, with what belongs to it.
std::string EncodeEnded(int status);
std::optional<int> DecodeEnded(std::string_view message) noexcept;

struct CWorkerRequest {
    TextFormat format = TextFormat::None;
    CFileDescriptor file;
    CFileDescriptor answer;
};

/// False when the other side is gone.
bool SendRequest(int socket, TextFormat format, int file, int answer) noexcept;
/// Waits for a request; none when the other side is gone or sent none.
std::optional<CWorkerRequest> ReceiveRequest(int socket) noexcept;

}  // namespace quorbel
