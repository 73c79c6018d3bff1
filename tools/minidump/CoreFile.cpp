#include "tools/minidump/CoreFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <elf.h>

#include "tools/minidump/CoreNotes.h"

namespace quorbel {

namespace {

constexpr std::uint64_t kPage = CProcessMemory::kPage;
/// More mappings than that have no place in the file's head.
constexpr std::size_t kMostSegments = PN_XNUM - 2;
/// No single mapping takes more room in the file, holes included.
constexpr std::uint64_t kLargestSegment = 1ULL << 30;
/// What a function may use below its stack pointer.
constexpr std::uint64_t kRedZone = 128;

enum class Priority { Stack, ModuleData, Rest, Nothing };

struct CSegment {
    const CMapping* mapping;
    Priority priority;
    std::uint64_t begin;   ///< of what is stored
    std::uint64_t length;  ///< of what is stored
    std::uint64_t place = 0;
};

bool IsModuleData(const std::vector<CMapping>& mappings, std::size_t index) {
    const CMapping& mapping = mappings[index];
    if (mapping.IsOfFile() || mapping.path == "[vdso]") return true;
    // Data that begin as zeros follow the file's.
    return index != 0 && mapping.path.empty() && mappings[index - 1].IsOfFile() &&
           mappings[index - 1].end == mapping.begin;
}

Priority PriorityOf(const std::vector<CMapping>& mappings, std::size_t index) {
    const CMapping& mapping = mappings[index];
    if (!mapping.isReadable || mapping.isKeptOut || mapping.isShared) return Priority::Nothing;
    const bool isModule = IsModuleData(mappings, index);
    // A module's head says which build it is of.
    const bool isHead = mapping.IsOfFile() && mapping.offset == 0;
    if (!mapping.isChanged && !isHead && mapping.path != "[vdso]") return Priority::Nothing;
    return isModule ? Priority::ModuleData : Priority::Rest;
}

CSegment MakeSegment(const std::vector<CMapping>& mappings, std::size_t index,
                     const std::vector<std::uint64_t>& stacks) {
    const CMapping& mapping = mappings[index];
    CSegment segment{&mapping, PriorityOf(mappings, index), mapping.begin,
                     std::min(mapping.Size(), kLargestSegment)};
    if (segment.priority == Priority::Nothing) segment.length = 0;
    if (mapping.IsOfFile() && !mapping.isChanged) segment.length = std::min(segment.length, kPage);
    std::uint64_t lowest = mapping.end;
    for (const std::uint64_t stack : stacks) {
        if (mapping.Contains(stack)) lowest = std::min(lowest, stack);
    }
    if (lowest == mapping.end || segment.priority == Priority::Nothing) return segment;
    segment.priority = Priority::Stack;
    segment.begin = std::max(mapping.begin, (lowest - kRedZone) / kPage * kPage);
    segment.length = std::min(mapping.end - segment.begin, kLargestSegment);
    return segment;
}

std::vector<std::uint64_t> StackPointers(const CDumpContent& content) {
    std::vector<std::uint64_t> stacks;
    for (const CTracedThread& thread : content.threads) stacks.push_back(thread.registers.rsp);
    if (content.fault)
        stacks.push_back(static_cast<std::uint64_t>(content.fault->context.uc_mcontext.gregs[REG_RSP]));
    return stacks;
}

std::vector<CSegment> MakeSegments(const CDumpContent& content) {
    const auto stacks = StackPointers(content);
    std::vector<CSegment> segments;
    for (std::size_t index = 0; index != content.mappings.size(); ++index) {
        if (!content.mappings[index].isReadable || segments.size() == kMostSegments) continue;
        segments.push_back(MakeSegment(content.mappings, index, stacks));
    }
    return segments;
}

ErrorCode WriteAt(int file, std::uint64_t place, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(place));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return written < 0 ? ErrorFromErrno(errno) : ErrorCode::DiskFull;
        bytes = bytes.subspan(static_cast<std::size_t>(written));
        place += static_cast<std::uint64_t>(written);
    }
    return ErrorCode::Success;
}

/// Stores memory until the limit is reached.
class CMemoryWriter {
 public:
    CMemoryWriter(int file, const CProcessMemory& memory, std::uint64_t limit)
        : m_file(file), m_memory(memory), m_left(limit) {}

    /// The segment's length becomes what the limit let be stored.
    ErrorCode Write(CSegment& segment) {
        for (std::uint64_t done = 0; done < segment.length; done += m_chunk.size()) {
            if (m_left == 0) {
                segment.length = done;
                break;
            }
            const std::uint64_t size = std::min<std::uint64_t>(m_chunk.size(), segment.length - done);
            const ErrorCode error = WriteChunk(segment.begin + done, size, segment.place + done);
            if (error != ErrorCode::Success) return error;
        }
        return ErrorCode::Success;
    }

 private:
    ErrorCode WriteChunk(std::uint64_t address, std::uint64_t size, std::uint64_t place) {
        if (!m_memory.IsUsed(address, address + size)) return ErrorCode::Success;
        const std::span<std::byte> chunk(m_chunk.data(), size);
        if (m_memory.Read(address, chunk)) return WritePages(chunk, place);
        // One page of it is not there: the others may be.
        for (std::uint64_t done = 0; done < size; done += kPage) {
            const auto page = chunk.subspan(done, std::min(kPage, size - done));
            if (!m_memory.Read(address + done, page)) continue;
            if (const ErrorCode error = WritePages(page, place + done); error != ErrorCode::Success)
                return error;
        }
        return ErrorCode::Success;
    }

    /// Pages that hold something, in one piece where they follow each other.
    ErrorCode WritePages(std::span<const std::byte> bytes, std::uint64_t place) {
        for (std::size_t begin = 0; begin < bytes.size();) {
            std::size_t end = begin;
            while (end < bytes.size() && !IsZero(bytes.subspan(end, std::min(kPage, bytes.size() - end))))
                end += std::min(kPage, bytes.size() - end);
            const ErrorCode error = WriteAt(m_file, place + begin, bytes.subspan(begin, end - begin));
            if (error != ErrorCode::Success) return error;
            m_left -= std::min<std::uint64_t>(m_left, end - begin);
            begin = end == begin ? begin + kPage : end;
        }
        return ErrorCode::Success;
    }

    static bool IsZero(std::span<const std::byte> page) noexcept {
        return page[0] == std::byte{0} && std::memcmp(page.data(), page.data() + 1, page.size() - 1) == 0;
    }

    const int m_file;
    const CProcessMemory& m_memory;
    std::uint64_t m_left;
    std::vector<std::byte> m_chunk = std::vector<std::byte>(256 << 10);
};

Elf64_Ehdr FileHead(std::size_t segments) {
    Elf64_Ehdr head{};
    std::memcpy(head.e_ident, ELFMAG, SELFMAG);
    head.e_ident[EI_CLASS] = ELFCLASS64;
    head.e_ident[EI_DATA] = ELFDATA2LSB;
    head.e_ident[EI_VERSION] = EV_CURRENT;
    head.e_type = ET_CORE;
    head.e_machine = EM_X86_64;
    head.e_version = EV_CURRENT;
    head.e_phoff = sizeof head;
    head.e_ehsize = sizeof head;
    head.e_phentsize = sizeof(Elf64_Phdr);
    head.e_phnum = static_cast<Elf64_Half>(segments + 1);
    return head;
}

Elf64_Phdr SegmentHead(const CSegment& segment) {
    const CMapping& mapping = *segment.mapping;
    Elf64_Phdr head{};
    head.p_type = PT_LOAD;
    head.p_flags = (mapping.isReadable ? PF_R : 0U) | (mapping.isWritable ? PF_W : 0U) |
                   (mapping.isExecutable ? PF_X : 0U);
    head.p_offset = segment.place;
    // What lies below the part of a stack that is in use is left out whole.
    head.p_vaddr = segment.begin;
    head.p_filesz = segment.length;
    head.p_memsz = mapping.end - segment.begin;
    head.p_align = kPage;
    return head;
}

std::span<const std::byte> AsBytes(const std::string& text) {
    return std::as_bytes(std::span(text.data(), text.size()));
}

template <class Value>
void Append(std::string& bytes, const Value& value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace

ErrorCode WriteCore(int file, const CDumpContent& content, std::uint64_t limit) {
    std::vector<CSegment> segments = MakeSegments(content);
    const std::string notes = MakeCoreNotes(content);
    const std::uint64_t notesPlace = sizeof(Elf64_Ehdr) + (segments.size() + 1) * sizeof(Elf64_Phdr);
    std::uint64_t place = (notesPlace + notes.size() + kPage - 1) / kPage * kPage;
    for (CSegment& segment : segments) {
        segment.place = place;
        place += segment.length;
    }
    CMemoryWriter writer(file, content.memory, limit);
    for (const Priority priority : {Priority::Stack, Priority::ModuleData, Priority::Rest}) {
        for (CSegment& segment : segments) {
            if (segment.priority != priority) continue;
            if (const ErrorCode error = writer.Write(segment); error != ErrorCode::Success) return error;
        }
    }
    std::string heads;
    Append(heads, FileHead(segments.size()));
    Elf64_Phdr noteHead{};
    noteHead.p_type = PT_NOTE;
    noteHead.p_offset = notesPlace;
    noteHead.p_filesz = notes.size();
    noteHead.p_align = 4;
    Append(heads, noteHead);
    for (const CSegment& segment : segments) Append(heads, SegmentHead(segment));
    if (const ErrorCode error = WriteAt(file, 0, AsBytes(heads)); error != ErrorCode::Success) return error;
    if (const ErrorCode error = WriteAt(file, notesPlace, AsBytes(notes)); error != ErrorCode::Success)
        return error;
    return ErrorFromErrno(::ftruncate(file, static_cast<off_t>(place)) == 0 ? 0 : errno);
}

}  // namespace quorbel
