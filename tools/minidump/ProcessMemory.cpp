#include "tools/minidump/ProcessMemory.h"

#include <charconv>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/uio.h>

namespace quorbel {

namespace {

std::string PathOf(std::uint32_t process, const char* name) {
    return "/proc/" + std::to_string(process) + "/" + name;
}

bool TakeHex(std::string_view& text, std::uint64_t& number, char end) {
    const auto [next, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
    if (error != std::errc() || next == text.data() + text.size() || *next != end) return false;
    text.remove_prefix(static_cast<std::size_t>(next - text.data()) + 1);
    return true;
}

/// "begin-end perms offset device inode    path"
bool ParseHead(std::string_view line, CMapping& mapping) {
    if (!TakeHex(line, mapping.begin, '-') || !TakeHex(line, mapping.end, ' ')) return false;
    if (line.size() < 5 || mapping.begin >= mapping.end) return false;
    mapping.isReadable = line[0] == 'r';
    mapping.isWritable = line[1] == 'w';
    mapping.isExecutable = line[2] == 'x';
    mapping.isShared = line[3] == 's';
    line.remove_prefix(5);
    if (!TakeHex(line, mapping.offset, ' ')) return false;
    // The device and the inode are of no interest.
    for (int skipped = 0; skipped != 2; ++skipped)
        line.remove_prefix(std::min(line.find(' '), line.size() - 1) + 1);
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    mapping.path = line;
    return true;
}

void ParseDetail(std::string_view line, CMapping& mapping) {
    constexpr std::string_view kAnonymous = "Anonymous:";
    constexpr std::string_view kFlags = "VmFlags:";
    if (line.starts_with(kAnonymous)) mapping.isChanged = line.find_first_of("123456789") != line.npos;
    if (line.starts_with(kFlags))
        mapping.isKeptOut = line.find(" dd") != line.npos || line.find(" io") != line.npos;
}

}  // namespace

std::vector<CMapping> ParseMappings(std::string_view smaps) {
    std::vector<CMapping> mappings;
    while (!smaps.empty()) {
        const std::size_t end = std::min(smaps.find('\n'), smaps.size());
        const std::string_view line = smaps.substr(0, end);
        smaps.remove_prefix(std::min(end + 1, smaps.size()));
        CMapping mapping;
        if (ParseHead(line, mapping)) {
            mappings.push_back(std::move(mapping));
        } else if (!mappings.empty()) {
            ParseDetail(line, mappings.back());
        }
    }
    return mappings;
}

CProcessMemory::CProcessMemory(std::uint32_t process)
    : m_process(static_cast<int>(process)),
      m_pages(::open(PathOf(process, "pagemap").c_str(), O_RDONLY | O_CLOEXEC)) {}

bool CProcessMemory::Read(std::uint64_t address, std::span<std::byte> bytes) const noexcept {
    const iovec here{bytes.data(), bytes.size()};
    const iovec there{reinterpret_cast<void*>(address), bytes.size()};  // NOLINT: another process's address
    return ::process_vm_readv(m_process, &here, 1, &there, 1, 0) == static_cast<ssize_t>(bytes.size());
}

bool CProcessMemory::IsUsed(std::uint64_t begin, std::uint64_t end) const noexcept {
    constexpr std::uint64_t kPresentOrSwapped = 3ULL << 62;
    std::array<std::uint64_t, 512> pages;
    while (begin < end) {
        const std::size_t wanted = std::min<std::uint64_t>(pages.size(), (end - begin) / kPage);
        const auto place = static_cast<off_t>(begin / kPage * sizeof pages[0]);
        const ssize_t read = ::pread(m_pages.Get(), pages.data(), wanted * sizeof pages[0], place);
        if (read <= 0) return true;  // not told: it may be
        const auto count = static_cast<std::size_t>(read) / sizeof pages[0];
        for (const std::uint64_t page : std::span(pages.data(), count)) {
            if ((page & kPresentOrSwapped) != 0) return true;
        }
        begin += count * kPage;
    }
    return false;
}

std::string ReadProcessFile(std::uint32_t process, const char* name) {
    std::ifstream file(PathOf(process, name), std::ios::binary);
    std::ostringstream content;
    if (file) content << file.rdbuf();
    return std::move(content).str();
}

}  // namespace quorbel
