#include "LibService/trace/TraceFileReader.h"

#include "LibService/trace/HuffmanCoder.h"
#include "LibService/trace/TraceFile.h"

namespace quorbel {

namespace {

/// Reads a file from its start on, remembering where it is.
class CTraceFileParser {
 public:
    explicit CTraceFileParser(std::span<const std::uint8_t> bytes) noexcept : m_bytes(bytes) {}

    CTraceFileContent Parse() {
        if (!ParseStrings()) return Damaged("the names");
        for (std::size_t number = 1; m_offset < m_bytes.size(); ++number) {
            if (number > CTraceFile::kMostBuffers || !ParseBlock())
                return Damaged("block " + std::to_string(number));
        }
        return std::move(m_content);
    }

 private:
    std::span<const std::uint8_t> Rest() const noexcept { return m_bytes.subspan(m_offset); }

    CTraceFileContent Damaged(std::string what) {
        m_content.damage = CTraceDamage{m_offset, std::move(what)};
        return std::move(m_content);
    }

    /// The names of the objects and, behind them, the headers.
    bool ParseStrings() {
        if (m_bytes.empty()) return false;
        const std::size_t count = m_bytes[m_offset++];
        while (m_strings.size() < count) {
            const auto rest = Rest();
            if (rest.empty() || rest[0] >= rest.size()) return false;
            m_strings.emplace_back(rest.begin() + 1, rest.begin() + 1 + rest[0]);
            m_offset += 1U + rest[0];
        }
        for (m_names = m_strings.size(); m_names != 0; --m_names) {
            const std::string& text = m_strings[m_names - 1];
            const std::size_t separator = text.find("::");
            if (separator == text.npos) break;
            m_content.headers[text.substr(0, separator)] = text.substr(separator + 2);
        }
        return true;
    }

    bool ParseBlock() {
        const auto rest = Rest();
        std::uint64_t first = 0;
        if (rest.size() < sizeof first) return false;
        for (unsigned i = 0; i < sizeof first; ++i) first |= std::uint64_t{rest[i]} << 8 * i;
        const auto block = Decompress(rest.subspan(sizeof first));
        if (!block) return false;
        CTraceImageReader reader(block->content, first);
        while (const auto entry = reader.Next()) {
            if (entry->object >= m_names) return false;
            m_content.records.push_back({entry->number,
                                         entry->time,
                                         entry->id,
                                         m_strings[entry->object],
                                         {entry->arguments.begin(), entry->arguments.end()}});
        }
        if (!reader.IsSound()) return false;
        m_offset += sizeof first + block->blockSize;
        return true;
    }

    const std::span<const std::uint8_t> m_bytes;
    std::size_t m_offset = 0;
    std::vector<std::string> m_strings;
    std::size_t m_names = 0;  // how many of them are names of objects
    CTraceFileContent m_content;
};

}  // namespace

CTraceFileContent ReadTraceFile(std::span<const std::uint8_t> bytes) {
    return CTraceFileParser(bytes).Parse();
}

}  // namespace quorbel
