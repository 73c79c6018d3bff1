// A service in small that faults: FaultyProgram SCENARIO FOLDER HELPER MILLISECONDS. Events and dumps go to
// the folder; what it does is written to standard output.

#include <cstdlib>
#include <cxxabi.h>
#include <exception>
#include <functional>
#include <iostream>
#include <latch>
#include <map>
#include <signal.h>
#include <string.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "LibService/CException.h"
#include "LibService/CrashReports.h"
#include "LibService/EventLog.h"
#include "LibService/FaultResponse.h"
#include "platform/Precondition.h"
#include "platform/Text.h"
#include "platform/Thread.h"
#include "tests/support/Faults.h"

namespace quorbel {
namespace {

void Say(const std::string& text) {
    const std::string line = text + "\n";
    Ignore(::write(STDOUT_FILENO, line.data(), line.size()));
}

/// Runs what faults; what is caught is reported and said.
void Try(const std::function<void()>& fault) {
    try {
        const CFaultScope scope;
        fault();
        Say("went on");
    } catch (CException* exception) {
        TakeException(exception).Report();
        Say("caught");
    }
}

void OnThread(const std::function<void()>& work) {
    auto thread = StartThread("Faulty", work);
    if (thread.IsOk()) std::move(thread).Value().join();
}

struct CSaysWhenUnwound {
    ~CSaysWhenUnwound() { Say("unwound"); }
};

[[gnu::noinline]] void FaultWithLocals() {
    const CSaysWhenUnwound local;
    WriteToNull();
}

struct CFaultsWhenUnwound {
    ~CFaultsWhenUnwound() { DivideByZero(); }
};

[[gnu::noinline]] void FaultTwice() {
    const CFaultsWhenUnwound local;
    WriteToNull();
}

[[gnu::noinline]] void FaultInside() noexcept {
    WriteToNull();
}

int CompareByFault(const void*, const void*) {
    WriteToNull();
    return 0;
}

void FaultInCallback() {
    int numbers[]{2, 1};
    ::qsort(numbers, 2, sizeof numbers[0], CompareByFault);
}

/// As an allocator does that finds its lists overwritten.
void FaultInLibrary() {
    void* const volatile nowhere = ::mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    const volatile std::size_t length = 4096;
    Say(std::to_string(::strnlen(static_cast<const char*>(nowhere), length)));
}

/// What finds that out is the allocator, which aborts.
void FreeTwice() {
    void* const volatile memory = std::malloc(100);
    std::free(memory);
    std::free(memory);
}

/// Both threads are in it before either faults.
void FaultTogether(void (*first)(std::latch&), void (*second)(std::latch&)) {
    std::latch both(2);
    auto other = StartThread("Other", [&] { first(both); });
    auto one = StartThread("One", [&] { second(both); });
    if (!other.IsOk() || !one.IsOk()) return;
    std::move(other).Value().join();
    std::move(one).Value().join();
}

void FaultCaught(std::latch& both) {
    Try([&both] {
        both.arrive_and_wait();
        WriteToNull();
    });
}

void FaultUncaught(std::latch& both) {
    both.arrive_and_wait();
    WriteToNull();
}

/// Faults while other threads come and go.
void FaultInCrowd() {
    std::atomic<bool> isOver = false;
    std::vector<std::thread> crowd;
    for (int i = 0; i != 4; ++i) {
        auto thread = StartThread("Crowd", [&isOver] {
            while (!isOver) OnThread([] {});
        });
        if (thread.IsOk()) crowd.push_back(std::move(thread).Value());
    }
    for (int i = 0; i != 5; ++i) Try(WriteToNull);
    isOver = true;
    for (std::thread& thread : crowd) thread.join();
}

const std::map<std::string, std::function<void()>> kScenarios{
    {"write", [] { Try(WriteToNull); }},
    {"read", [] { Try(ReadFromWild); }},
    {"call", [] { Try(CallNull); }},
    {"divide", [] { Try(DivideByZero); }},
    {"trap", [] { Try(Trap); }},
    {"breakpoint", [] { Try(RunIntoBreakpoint); }},
    {"on a thread", [] { OnThread([] { Try(WriteToNull); }); }},
    {"overflow", [] { OnThread([] { Try(OverflowStack); }); }},
    {"locals", [] { Try(FaultWithLocals); }},
    {"many",
     [] {
         for (int i = 0; i != 3; ++i) Try(FaultWithLocals);
     }},
    {"parameter", [] { Try([] { Require(false); }); }},
    {"parameter uncaught", [] { Require(false); }},
    {"uncaught", [] { WriteToNull(); }},
    {"uncaught on a thread", [] { OnThread(WriteToNull); }},
    {"overflow uncaught", [] { OnThread(OverflowStack); }},
    {"library", [] { Try(FaultInLibrary); }},
    {"callback", [] { Try(FaultInCallback); }},
    {"noexcept", [] { Try(FaultInside); }},
    {"twice", [] { Try(FaultTwice); }},
    {"sent", [] { Try([] { ::raise(SIGSEGV); }); }},
    {"crowd", FaultInCrowd},
    {"exception", [] { throw std::runtime_error("nobody's"); }},
    {"abort", [] { Try(std::abort); }},
    {"abort on a thread", [] { OnThread(std::abort); }},
    {"double free", [] { Try(FreeTwice); }},
    {"pure virtual", [] { Try(abi::__cxa_pure_virtual); }},
    {"terminate", [] { Try(std::terminate); }},
    {"two caught", [] { FaultTogether(FaultCaught, FaultCaught); }},
    {"two uncaught", [] { FaultTogether(FaultUncaught, FaultUncaught); }},
    {"caught and uncaught", [] { FaultTogether(FaultCaught, FaultUncaught); }},
};

int Run(char** arguments) {
    const auto scenario = kScenarios.find(arguments[1]);
    if (scenario == kScenarios.end()) return 2;
    const std::filesystem::path folder = arguments[2];
    CEventLog::Instance().SetSink(CreateFileSink(folder, EventEcho::None));
    CEventLog::Instance().SetModulePath(std::string(QUORBEL_PROGRAMS) + "/EvtQBHTTPService.dll");
    if (!CEventLog::Instance().Module() || !CFaultResponse::Instance().SetUp().IsOk()) return 3;
    std::unique_ptr<CCrashReports> reports;
    const CStatus status =
        CCrashReports::Create({.folder = folder,
                               .serviceName = L"Faulty Service",
                               .afterDump = [] { Say("after the dump"); },
                               .helper = arguments[3],
                               .patience = std::chrono::milliseconds(std::atoi(arguments[4]))},
                              reports);
    if (!status.IsOk()) return 4;
    scenario->second();
    reports.reset();
    Say("ended well");
    return 0;
}

}  // namespace
}  // namespace quorbel

int main(int count, char** arguments) {
    return count == 5 ? quorbel::Run(arguments) : 2;
}
