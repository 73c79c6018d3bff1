#pragma once

#include <memory>
#include <string_view>

#include "platform/Error.h"
#include "platform/Event.h"
#include "platform/FileDescriptor.h"

namespace quorbel {

/// True when standard output is a terminal.
bool StandardOutputIsTerminal() noexcept;
inline constexpr int kStandardOutput = 1;

/// Writes to a terminal or a pipe without ever being held up by a reader that does not read.
class CTerminalWriter {
 public:
    /// Opens what the descriptor refers to anew, so that other users of it do not notice.
    static CResult<std::unique_ptr<CTerminalWriter>> Open(int descriptor);

    /// Writes everything, waiting for the reader until `stop` is set (Cancelled). For one thread at a time,
    /// which from then on has SIGPIPE blocked.
    ErrorCode Write(std::string_view bytes, CEvent& stop);

    explicit CTerminalWriter(CFileDescriptor descriptor) noexcept : m_descriptor(std::move(descriptor)) {}

 private:
    const CFileDescriptor m_descriptor;
};

}  // namespace quorbel
