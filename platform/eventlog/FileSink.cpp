#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/file.h>
#include <unistd.h>

#include "platform/Lock.h"
#include "platform/Terminal.h"
#include "platform/Text.h"
#include "platform/VisibleText.h"
#include "platform/eventlog/EventFile.h"
#include "platform/eventlog/EventJson.h"
#include "platform/eventlog/EventSink.h"

namespace quorbel {

namespace {

/// Standard error as lines for people, any thread's; what it does not take at once is dropped.
class CErrorEcho {
 public:
    CErrorEcho() {
        auto stop = CEvent::Create(EventReset::Manual);
        auto writer = CTerminalWriter::Open(STDERR_FILENO);
        if (!stop.IsOk() || !writer.IsOk()) return;
        m_never = std::move(stop).Value();
        m_never->Set();
        m_writer = std::move(writer).Value();
    }

    void Write(std::string line) {
        if (!m_writer) return;
        // What a pipe takes whole or not at all.
        constexpr std::size_t kLongest = 4095;
        if (line.size() > kLongest) line.resize(kLongest);
        line += '\n';
        const std::lock_guard guard(m_lock);
        // Nobody is left to tell of a failure here; the entry itself is in the file.
        Ignore(m_writer->Write(line, *m_never));
    }

 private:
    // Constant after construction.
    std::unique_ptr<CTerminalWriter> m_writer;  ///< none when standard error is closed
    std::shared_ptr<CEvent> m_never;            ///< set: the writer never waits

    CMutex m_lock{LockRank::Innermost};  ///< one line at a time
};

std::string EchoText(const CEventEntry& entry) {
    std::string line = TimeText(entry.time) + " " + SeverityName(entry.severity) + " " + IdText(entry.id) +
                       " " + ToVisibleUtf8(entry.text);
    if (!entry.source.empty()) line += " (" + entry.source + " " + std::to_string(entry.line) + ")";
    return line;
}

class CFileSink final : public IEventSink {
 public:
    CFileSink(const std::filesystem::path& folder, EventEcho echo) : m_file(folder) {
        if (echo == EventEcho::StandardError) m_echo.emplace();
    }

    void Write(const CEventEntry& entry) noexcept override try {
        // An entry that does not fit the disk is dropped; there is no second place to say so.
        Ignore(m_file.Append(ToJsonLine(entry)));
        if (m_echo) m_echo->Write(EchoText(entry));
    } catch (const std::exception&) {
        return;  // out of memory: the entry is dropped
    }

    void WriteLastWords(const CLastWords& words) noexcept override {
        const CLastWordsText line = ToJsonLine(words);
        m_file.AppendLastWords(line.View());
        if (m_echo) ShowLastWords(words);
    }

 private:
    CEventFile m_file;
    std::optional<CErrorEcho> m_echo;
};

std::string ReadEventFile(const std::filesystem::path& path) {
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
        previous = ReadEventFile(folder / kPreviousEventFile);
        current = ReadEventFile(folder / kEventFile);
    }
    std::vector<CEventEntry> entries;
    AppendEntries(previous, entries);
    AppendEntries(current, entries);
    return entries;
}

}  // namespace quorbel
