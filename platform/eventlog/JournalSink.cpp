// The fields that say where in the source an entry was made are set by hand.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <sys/uio.h>
#include <syslog.h>
#include <systemd/sd-journal.h>

#include "platform/Error.h"
#include "platform/Text.h"
#include "platform/eventlog/EventJson.h"
#include "platform/eventlog/EventSink.h"

namespace quorbel {

namespace {

int Priority(EventSeverity severity) {
    switch (severity) {
        case EventSeverity::Success:
        case EventSeverity::Informational: return LOG_INFO;
        case EventSeverity::Warning: return LOG_WARNING;
        case EventSeverity::Error: return LOG_ERR;
    }
    return LOG_ERR;
}

std::vector<std::string> Fields(const CEventEntry& entry, const std::string& sourceName) {
    std::vector<std::string> fields{
        "MESSAGE=" + ToUtf8(entry.text),
        "PRIORITY=" + std::to_string(Priority(entry.severity)),
        "SYSLOG_IDENTIFIER=" + sourceName,
        "QUORBEL_EVENT_ID=" + IdText(entry.id),
        std::string("QUORBEL_SEVERITY=") + SeverityName(entry.severity),
        "QUORBEL_USER=" + entry.user,
    };
    for (std::size_t i = 0; i < entry.strings.size(); ++i)
        fields.push_back("QUORBEL_INSERT_" + std::to_string(i + 1) + "=" + ToUtf8(entry.strings[i]));
    if (!entry.source.empty()) {
        fields.push_back("CODE_FILE=" + entry.source);
        fields.push_back("CODE_LINE=" + std::to_string(entry.line));
    }
    return fields;
}

class CJournalSink final : public IEventSink {
 public:
    explicit CJournalSink(std::string sourceName) : m_sourceName(std::move(sourceName)) {}

    void Write(const CEventEntry& entry) noexcept override try {
        std::vector<std::string> fields = Fields(entry, m_sourceName);
        std::vector<iovec> parts;
        parts.reserve(fields.size());
        for (std::string& field : fields) parts.push_back({field.data(), field.size()});
        // The journal is the last resort: an entry that it does not take is dropped.
        Ignore(::sd_journal_sendv(parts.data(), static_cast<int>(parts.size())));
    } catch (const std::exception&) {
        return;  // out of memory: the entry is dropped
    }

    void WriteLastWords(const CLastWords& words) noexcept override {
        CFixedText<2048> message;
        message.Append("MESSAGE=").Append(words.introduction).Append(words.string);
        CFixedText<2048> string;
        string.Append("QUORBEL_INSERT_1=").Append(words.string);
        CFixedText<64> id;
        id.Append("QUORBEL_EVENT_ID=0x").AppendHex(words.id, 8);
        CFixedText<64> priority;
        priority.Append("PRIORITY=").AppendDecimal(LOG_ERR);
        CFixedText<64> severity;
        severity.Append("QUORBEL_SEVERITY=").Append(SeverityName(EventSeverity::Error));
        const std::string_view fields[] = {message.View(),  string.View(),   id.View(),
                                           priority.View(), severity.View(), m_identifier};
        std::array<iovec, std::size(fields)> parts;
        for (std::size_t i = 0; i != parts.size(); ++i)
            parts[i] = {const_cast<char*>(fields[i].data()), fields[i].size()};  // NOLINT: it is only read
        // There is no second place to say that the journal does not take it.
        Ignore(::sd_journal_sendv(parts.data(), static_cast<int>(parts.size())));
    }

 private:
    const std::string m_sourceName;
    const std::string m_identifier = "SYSLOG_IDENTIFIER=" + m_sourceName;
};

}  // namespace

std::shared_ptr<IEventSink> CreateJournalSink(std::wstring_view sourceName) {
    return std::make_shared<CJournalSink>(ToUtf8(sourceName));
}

}  // namespace quorbel
