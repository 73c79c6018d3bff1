#pragma once

#include <chrono>

namespace quorbel {

/// Answers requests (components/search/text/WorkerProtocol.h) from the socket until its other end is gone.
/// Each file is read by a child of its own, so that what a file does to its reader ends with it; the calling
/// process touches none, and ends when a child leaves processes behind. Says Ready first.
void RunWorkerLoop(int socket, std::chrono::seconds timeLimit) noexcept;

}  // namespace quorbel
