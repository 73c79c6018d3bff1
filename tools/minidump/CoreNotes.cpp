#include "tools/minidump/CoreNotes.h"

#include <cstring>
#include <elf.h>
#include <sys/procfs.h>

namespace quorbel {

namespace {

/// Where XSAVE stores, and signal frames and cores tell, what there is beyond the first 512 bytes.
constexpr std::size_t kSoftwareBytes = 464;
struct CSignalFrameState {
    std::uint32_t magic;
    std::uint32_t extendedSize;
    std::uint64_t features;
    std::uint32_t size;
};
constexpr std::uint32_t kSignalFrameMagic = 0x46505853;

template <class Value>
std::string_view BytesOf(const Value& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

void AppendNote(std::string& notes, std::string_view name, std::uint32_t type, std::string_view content) {
    const auto pad = [&notes] { notes.resize((notes.size() + 3) / 4 * 4); };
    const Elf64_Nhdr head{static_cast<Elf64_Word>(name.size() + 1), static_cast<Elf64_Word>(content.size()),
                          type};
    notes.append(BytesOf(head)).append(name).push_back('\0');
    pad();
    notes.append(content);
    pad();
}

/// The registers at the fault; the segments are those of the thread as it stands.
void TakeFaultRegisters(const CFaultRecord& fault, user_regs_struct& to) {
    const auto from = [&fault](int which) {
        return static_cast<unsigned long long>(fault.context.uc_mcontext.gregs[which]);
    };
    to.r8 = from(REG_R8), to.r9 = from(REG_R9), to.r10 = from(REG_R10), to.r11 = from(REG_R11);
    to.r12 = from(REG_R12), to.r13 = from(REG_R13), to.r14 = from(REG_R14), to.r15 = from(REG_R15);
    to.rdi = from(REG_RDI), to.rsi = from(REG_RSI), to.rbp = from(REG_RBP), to.rbx = from(REG_RBX);
    to.rdx = from(REG_RDX), to.rax = from(REG_RAX), to.rcx = from(REG_RCX), to.rsp = from(REG_RSP);
    to.rip = from(REG_RIP), to.eflags = from(REG_EFL);
    to.orig_rax = ~0ULL;  // it stands in no system call
}

/// The extended registers that the signal's frame holds, in the order of a core; none when there are none.
std::vector<std::byte> ReadFaultState(const CDumpContent& content, const std::vector<std::byte>& live) {
    const auto address = reinterpret_cast<std::uintptr_t>(content.fault->context.uc_mcontext.fpregs);
    std::vector<std::byte> state(512);
    CSignalFrameState frame{};
    if (address == 0 || live.size() < state.size() || !content.memory.Read(address, state)) return {};
    std::memcpy(&frame, &state[kSoftwareBytes], sizeof frame);
    constexpr std::uint32_t kLargest = 64 << 10;
    if (frame.magic != kSignalFrameMagic || frame.size < state.size() || frame.size > kLargest) return {};
    state.resize(frame.size);
    if (!content.memory.Read(address, state)) return {};
    std::memcpy(&state[kSoftwareBytes], &live[kSoftwareBytes], 512 - kSoftwareBytes);
    return state;
}

elf_prstatus StatusOf(const CTracedThread& thread, const CDumpContent& content, int signal) {
    elf_prstatus status{};
    status.pr_pid = thread.id;
    status.pr_cursig = static_cast<short>(signal);
    status.pr_info.si_signo = signal;
    status.pr_pgrp = static_cast<pid_t>(content.process);
    static_assert(sizeof status.pr_reg == sizeof thread.registers);
    std::memcpy(&status.pr_reg, &thread.registers, sizeof status.pr_reg);
    status.pr_fpvalid = 1;
    return status;
}

elf_prpsinfo ProcessInfo(std::uint32_t process) {
    elf_prpsinfo info{};
    info.pr_sname = 'R';
    info.pr_pid = static_cast<int>(process);
    const std::string name = ReadProcessFile(process, "comm");
    std::string arguments = ReadProcessFile(process, "cmdline");
    std::replace(arguments.begin(), arguments.end(), '\0', ' ');
    name.substr(0, name.find('\n')).copy(info.pr_fname, sizeof info.pr_fname - 1);
    arguments.copy(info.pr_psargs, sizeof info.pr_psargs - 1);
    return info;
}

std::string MappedFiles(const std::vector<CMapping>& mappings) {
    std::uint64_t count = 0;
    std::string places;
    std::string names;
    for (const CMapping& mapping : mappings) {
        if (!mapping.IsOfFile()) continue;
        ++count;
        const std::uint64_t page = mapping.offset / CProcessMemory::kPage;
        places.append(BytesOf(mapping.begin)).append(BytesOf(mapping.end)).append(BytesOf(page));
        names.append(mapping.path).push_back('\0');
    }
    constexpr std::uint64_t kPage = CProcessMemory::kPage;
    return std::string(BytesOf(count)).append(BytesOf(kPage)).append(places).append(names);
}

void AppendRegisterSets(std::string& notes, const CTracedThread& thread) {
    AppendNote(notes, "CORE", NT_PRFPREG, BytesOf(thread.floatingPoint));
    if (thread.extendedState.empty()) return;
    const auto* const state = reinterpret_cast<const char*>(thread.extendedState.data());
    AppendNote(notes, "LINUX", NT_X86_XSTATE, {state, thread.extendedState.size()});
}

}  // namespace

std::string MakeCoreNotes(const CDumpContent& content) {
    std::string notes;
    CTracedThread first = content.threads.front();
    int signal = SIGABRT;
    if (content.fault) {
        TakeFaultRegisters(*content.fault, first.registers);
        first.floatingPoint = content.fault->floatingPoint;
        first.extendedState = ReadFaultState(content, first.extendedState);
        signal = content.fault->signal.si_signo;
    }
    // What belongs to the process stands after its first thread's status, before that thread's other
    // registers.
    AppendNote(notes, "CORE", NT_PRSTATUS, BytesOf(StatusOf(first, content, signal)));
    AppendNote(notes, "CORE", NT_PRPSINFO, BytesOf(ProcessInfo(content.process)));
    if (content.fault) AppendNote(notes, "CORE", NT_SIGINFO, BytesOf(content.fault->signal));
    AppendNote(notes, "CORE", NT_AUXV, ReadProcessFile(content.process, "auxv"));
    AppendNote(notes, "CORE", NT_FILE, MappedFiles(content.mappings));
    AppendRegisterSets(notes, first);
    for (std::size_t index = 1; index < content.threads.size(); ++index) {
        const CTracedThread& thread = content.threads[index];
        AppendNote(notes, "CORE", NT_PRSTATUS, BytesOf(StatusOf(thread, content, 0)));
        AppendRegisterSets(notes, thread);
    }
    return notes;
}

}  // namespace quorbel
