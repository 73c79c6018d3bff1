#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorbel {

enum class EventSeverity : std::uint8_t { Success = 0, Informational = 1, Warning = 2, Error = 3 };

/// One entry of the event log.
struct CEventEntry {
    std::uint64_t time = 0;  ///< 100 ns units since 1601-01-01 UTC
    std::uint32_t id = 0;
    EventSeverity severity = EventSeverity::Error;
    std::vector<std::wstring> strings;
    std::string source;      ///< file name of the raising source; empty when there is none
    std::uint32_t line = 0;  ///< its line; 0 when there is none
    std::string user;        ///< name of the user that the calling thread acts for
    std::wstring text;       ///< the rendered message, for people
};

/// The entry of a process that ends by a fault: an error with one string, without source and user.
struct CLastWords {
    std::uint32_t id = 0;
    std::string_view string;        ///< ASCII
    std::string_view introduction;  ///< what stands before the string in the message for people
};

/// Shows last words to people, where they can be shown at once.
void ShowLastWords(const CLastWords& words) noexcept;

/// Where events go. Write may be called from any thread and never fails visibly: what cannot be written is
/// dropped whole.
class IEventSink {
 public:
    virtual ~IEventSink() = default;
    virtual void Write(const CEventEntry& entry) noexcept = 0;
    /// Writes without allocating or waiting for a lock of this process: for handlers of faults.
    virtual void WriteLastWords(const CLastWords& words) noexcept = 0;
};

/// The journal, with structured fields, for a process that the service manager started.
std::shared_ptr<IEventSink> CreateJournalSink(std::wstring_view sourceName);

/// JSON lines in `folder`/events.jsonl; at 16 MiB it becomes events.1.jsonl, replacing that file's
/// predecessor. Several processes may write. With the echo, each entry is also written to standard error as
/// text (one line an entry, dropped rather than waited for when nobody reads there).
enum class EventEcho { None, StandardError };
std::shared_ptr<IEventSink> CreateFileSink(const std::filesystem::path& folder, EventEcho echo);

/// One entry as a JSON object without line end, and back (none for a damaged line).
std::string ToJsonLine(const CEventEntry& entry);
std::optional<CEventEntry> FromJsonLine(std::string_view line);

/// The entries of the file sink, oldest first; damaged lines are skipped.
std::vector<CEventEntry> ReadEventFiles(const std::filesystem::path& folder);

/// True when the service manager started this very process (SYSTEMD_EXEC_PID names it).
bool StartedByServiceManager();

/// Name of the user this process acts for; the number when the name is unknown.
std::string CurrentUserName();

}  // namespace quorbel
