#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "components/search/text/TextExtractor.h"
#include "platform/Error.h"
#include "platform/Event.h"

namespace quorbel {

/// The process that reads formats too complicated to be trusted: it is given open files, may open none but
/// the programs and libraries that it is made of, talks to nobody else, and is bounded in time and memory. It
/// is started when the first file comes, and again after it failed. One thread at a time; the process ends
/// with the thread that started it, and is then started again by the next.
class CTextWorker {
 public:
    struct Options {
        std::string program;                          ///< absolute path of the worker's program
        std::chrono::milliseconds timeLimit{20'000};  ///< for one file
        std::size_t memoryLimit = 512
                                  << 20;  ///< bytes of address space, of the worker and each of its children
    };
    explicit CTextWorker(Options options);
    ~CTextWorker();
    CTextWorker(const CTextWorker&) = delete;
    CTextWorker& operator=(const CTextWorker&) = delete;

    /// The text of an open regular file of a format that needs the worker. What fails in the file, or makes
    /// the worker fail, is the problem in the result. An error is ours: no process can be started, or
    /// Cancelled once `stop` is set (it stays set). Moves the file's offset.
    CResult<CExtractedText> Extract(int file, TextFormat format, const CEvent& stop);

 private:
    class CProcess;
    using Deadline = std::chrono::steady_clock::time_point;

    struct CAttempt;
    std::optional<CResult<CExtractedText>> Start(const CEvent& stop, Deadline deadline);
    CAttempt Ask(int file, TextFormat format, const CEvent& stop, Deadline deadline);
    CResult<CExtractedText> Outcome(const CAttempt& attempt);
    CExtractedText Failed(std::string_view how);

    const Options m_options;
    std::unique_ptr<CProcess> m_process;
};

}  // namespace quorbel
