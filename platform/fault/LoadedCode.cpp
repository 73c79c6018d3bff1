#include "platform/fault/LoadedCode.h"

#include <algorithm>
#include <atomic>
#include <link.h>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Lock.h"
#include "platform/Program.h"

namespace quorbel {

namespace {

struct CCodeRange {
    std::uintptr_t begin;
    std::uintptr_t end;
    CodeOwner owner;
};
using CodeRanges = std::vector<CCodeRange>;

/// What a signal handler looks at; it may look at an older one for a while, so none is ever destroyed.
std::atomic<const CodeRanges*> g_ranges = nullptr;

CodeOwner OwnerOfModule(std::string_view path, std::string_view programFolder) {
    if (path.empty()) return CodeOwner::Own;
    const std::size_t separator = path.rfind('/');
    if (separator == std::string_view::npos) return CodeOwner::Foreign;
    if (path.substr(0, separator) == programFolder) return CodeOwner::Own;
    constexpr std::string_view kRuntimes[] = {"libstdc++.so", "libgcc_s.so", "libcpprest.so", "libboost_"};
    const std::string_view name = path.substr(separator + 1);
    const bool isRuntime = std::any_of(std::begin(kRuntimes), std::end(kRuntimes),
                                       [name](std::string_view start) { return name.starts_with(start); });
    return isRuntime ? CodeOwner::Runtime : CodeOwner::Foreign;
}

struct CCollection {
    const std::string programFolder;
    CodeRanges ranges;
};

int Collect(dl_phdr_info* module, std::size_t, void* context) {
    auto& collection = *static_cast<CCollection*>(context);
    const CodeOwner owner = OwnerOfModule(module->dlpi_name, collection.programFolder);
    for (const ElfW(Phdr) & part : std::span(module->dlpi_phdr, module->dlpi_phnum)) {
        if (part.p_type != PT_LOAD || (part.p_flags & PF_X) == 0) continue;
        const std::uintptr_t begin = module->dlpi_addr + part.p_vaddr;
        collection.ranges.push_back({begin, begin + part.p_memsz, owner});
    }
    return 0;
}

}  // namespace

void NoteLoadedCode() {
    static CMutex lock(LockRank::Innermost);
    static auto& kept = *new std::vector<std::unique_ptr<const CodeRanges>>;  // NOLINT: never destroyed
    const auto program = ProgramPath();
    CCollection collection{program.IsOk() ? program.Value().parent_path().native() : "-", {}};
    ::dl_iterate_phdr(Collect, &collection);
    const std::lock_guard guard(lock);
    kept.push_back(std::make_unique<const CodeRanges>(std::move(collection.ranges)));
    g_ranges = kept.back().get();
}

CodeOwner OwnerOfCode(std::uintptr_t address) noexcept {
    const CodeRanges* const ranges = g_ranges;
    if (!ranges) return CodeOwner::Foreign;
    for (const CCodeRange& range : *ranges) {
        if (range.begin <= address && address < range.end) return range.owner;
    }
    return CodeOwner::Foreign;
}

}  // namespace quorbel
