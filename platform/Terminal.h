#pragma once

#include <memory>
#include <string_view>
#include <sys/types.h>

#include "platform/Error.h"
#include "platform/Event.h"
#include "platform/FileDescriptor.h"

namespace quorbel {

/// True when standard output is a terminal.
bool StandardOutputIsTerminal() noexcept;
inline constexpr int kStandardOutput = 1;

/// Writes to a terminal, a pipe, a socket or a file without being held up by a reader that does not read.
/// Only what can neither be opened anew nor be told not to wait, a terminal of another user for instance, may
/// hold it up within one write.
class CTerminalWriter {
 public:
    /// Writes to what the descriptor refers to, so that other users of it do not notice: a file is written
    /// where they are in it. Errors: InvalidHandle for a descriptor that is not open.
    static CResult<std::unique_ptr<CTerminalWriter>> Open(int descriptor);

    /// Writes everything, waiting for the reader until `stop` is set (Cancelled). For one thread at a time,
    /// which from then on has SIGPIPE blocked.
    ErrorCode Write(std::string_view bytes, CEvent& stop);

    /// How not to wait.
    enum class Way {
        AtOnce,    ///< the open file is one's own, and does not block
        Send,      ///< each write says so
        WhenReady  ///< after a poll, no more than a pipe takes at once
    };
    /// For Open.
    CTerminalWriter(CFileDescriptor descriptor, Way way) noexcept
        : m_descriptor(std::move(descriptor)), m_way(way) {}

 private:
    ErrorCode WaitForRoom(const CEvent& stop) const;
    ssize_t WriteSome(std::string_view bytes) const noexcept;

    const CFileDescriptor m_descriptor;
    const Way m_way;
};

}  // namespace quorbel
