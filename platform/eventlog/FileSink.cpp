#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/file.h>
#include <unistd.h>

#include "platform/Text.h"
#include "platform/VisibleText.h"
#include "platform/eventlog/EventFile.h"
#include "platform/eventlog/EventJson.h"
#include "platform/eventlog/EventSink.h"

namespace quorbel {

namespace {

/// One line to standard error. It is cut to what a pipe takes at once, so that a poll tells whether the write
/// would wait.
void WriteEcho(std::string line) {
    constexpr std::size_t kLongest = 4095;
    if (line.size() > kLongest) line.resize(kLongest);
    line += '\n';
    pollfd entry{STDERR_FILENO, POLLOUT, 0};
    if (::poll(&entry, 1, 0) != 1 || (entry.revents & POLLOUT) == 0) return;
    // Nobody is left to tell of a failure here; the entry itself is in the file.
    Ignore(::write(STDERR_FILENO, line.data(), line.size()));
}

std::string EchoText(const CEventEntry& entry) {
    std::string line = TimeText(entry.time) + " " + SeverityName(entry.severity) + " " + IdText(entry.id) +
                       " " + ToVisibleUtf8(entry.text);
    if (!entry.source.empty()) line += " (" + entry.source + " " + std::to_string(entry.line) + ")";
    return line;
}

class CFileSink final : public IEventSink {
 public:
    CFileSink(const std::filesystem::path& folder, EventEcho echo) : m_file(folder), m_echo(echo) {}

    void Write(const CEventEntry& entry) noexcept override try {
        // An entry that does not fit the disk is dropped; there is no second place to say so.
        Ignore(m_file.Append(ToJsonLine(entry)));
        if (m_echo == EventEcho::StandardError) WriteEcho(EchoText(entry));
    } catch (const std::exception&) {
        return;  // out of memory: the entry is dropped
    }

 private:
    CEventFile m_file;
    const EventEcho m_echo;
};

std::string ReadWhole(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    if (file) content << file.rdbuf();
    return std::move(content).str();
}

void AppendEntries(std::string_view lines, std::vector<CEventEntry>& entries) {
    while (!lines.empty()) {
        const std::size_t end = lines.find('\n');
        if (auto entry = FromJsonLine(lines.substr(0, end))) entries.push_back(std::move(*entry));
        if (end == std::string_view::npos) return;
        lines.remove_prefix(end + 1);
    }
}

}  // namespace

std::shared_ptr<IEventSink> CreateFileSink(const std::filesystem::path& folder, EventEcho echo) {
    return std::make_shared<CFileSink>(folder, echo);
}

std::vector<CEventEntry> ReadEventFiles(const std::filesystem::path& folder) {
    std::string previous;
    std::string current;
    {
        // The lock keeps a writer from renaming the one file while the other is read.
        const auto lock = OpenLocked(folder / kEventFile, O_RDONLY, LOCK_SH);
        previous = ReadWhole(folder / kPreviousEventFile);
        current = ReadWhole(folder / kEventFile);
    }
    std::vector<CEventEntry> entries;
    AppendEntries(previous, entries);
    AppendEntries(current, entries);
    return entries;
}

}  // namespace quorbel
