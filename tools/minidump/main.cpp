#include <cstring>
#include <iostream>

#include "platform/StopSignals.h"
#include "platform/Text.h"
#include "tools/minidump/CoreFile.h"
#include "tools/minidump/DumpArguments.h"
#include "tools/minidump/DumpFile.h"

namespace quorbel {

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUse = 2;

constexpr std::string_view kUsage =
    "Usage: QbMiniDump.exe -p PROCESS -t THREAD -e 0xADDRESS -f FILE\n"
    "Writes an ELF core of a running process, as gdb reads it. The service starts this program when a thread "
    "of\n"
    "it faults.\n"
    "  -p PROCESS    the process's number, hexadecimal\n"
    "  -t THREAD     the number of its thread that faulted, hexadecimal\n"
    "  -e 0xADDRESS  where in its memory the fault is described; zeros when there was none\n"
    "  -f FILE       the dump; of the dumps of one service in its folder the newest eight are kept\n"
    "  --help        this text\n";

int Fail(const std::string& what) {
    std::cerr << "QbMiniDump: " + what + "\n";
    return kFailed;
}

int Fail(const std::string& what, ErrorCode error) {
    return Fail(what + ": " + ToUtf8(SystemMessage(ToNumber(error)).value_or(L"unknown error")));
}

bool ReadRecord(const CProcessMemory& memory, std::uint64_t address, CFaultRecord& record) {
    return memory.Read(address, std::as_writable_bytes(std::span(&record, 1))) &&
           record.mark == CFaultRecord::kMark && record.size == sizeof record;
}

int Dump(const CDumpArguments& arguments) {
    CTracedThreads threads;
    if (const std::string wrong = threads.Stop(arguments.process, arguments.thread); !wrong.empty())
        return Fail(wrong);
    const CProcessMemory memory(arguments.process);
    CDumpContent content{arguments.process, threads.Threads(), std::nullopt,
                         ParseMappings(ReadProcessFile(arguments.process, "smaps")), memory};
    if (arguments.record != 0 && !ReadRecord(memory, arguments.record, content.fault.emplace()))
        return Fail("no fault is described at the address given");
    auto file = CDumpFile::Create(arguments.file);
    if (!file.IsOk()) return Fail(arguments.file.native(), file.Error());
    ErrorCode error = WriteCore(file.Value().Descriptor(), content);
    threads.Release();
    if (error == ErrorCode::Success) error = file.Value().Complete();
    return error == ErrorCode::Success ? 0 : Fail(arguments.file.native(), error);
}

}  // namespace

}  // namespace quorbel

int main(int count, char** arguments) {
    using namespace quorbel;
    if (count == 2 && std::strcmp(arguments[1], "--help") == 0) {
        std::cout << kUsage;
        return 0;
    }
    const auto parsed =
        CDumpArguments::Parse(std::span(arguments, static_cast<std::size_t>(count)).subspan(1));
    if (const auto* wrong = std::get_if<std::string>(&parsed)) {
        std::cerr << "QbMiniDump: " << *wrong << "\n" << kUsage;
        return kWrongUse;
    }
    // A file that may not become larger is an error, and no end before what there is of it is removed.
    Ignore(IgnoreFileSizeSignal());
    return Dump(std::get<CDumpArguments>(parsed));
}
