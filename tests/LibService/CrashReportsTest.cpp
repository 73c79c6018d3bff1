#include <array>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <signal.h>
#include <spawn.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "LibService/MessageIds.h"
#include "platform/Error.h"
#include "platform/eventlog/EventSink.h"
#include "tests/support/TemporaryFolder.h"

// It reports every allocation from then on as one of a signal handler.
#ifdef __SANITIZE_THREAD__
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif

// It ends the process by itself where memory is freed twice.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif

namespace quorbel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

/// Runs the program that faults with a helper, over a folder of its own.
class CrashReports : public testing::Test {
 protected:
    void SetUp() override {
        if (kThreadSanitizer)
            GTEST_SKIP()
                << "the thread sanitizer takes a thread whose handler threw for one that is still in it";
    }

    /// The exit status; or 128 and the signal's number.
    int Run(const std::string& scenario, const std::string& helper,
            const std::string& milliseconds = "60000") {
        const std::string output = m_folder / "output";
        posix_spawn_file_actions_t files;
        ::posix_spawn_file_actions_init(&files);
        ::posix_spawn_file_actions_addopen(&files, 1, output.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
        std::array<std::string, 5> texts{QUORBEL_FAULTY_PROGRAM, scenario, m_folder.Path(), helper,
                                         milliseconds};
        std::array<char*, 6> arguments{};
        for (std::size_t i = 0; i != texts.size(); ++i) arguments[i] = texts[i].data();
        pid_t child = 0;
        const int error = ::posix_spawn(&child, texts[0].c_str(), &files, nullptr, arguments.data(), environ);
        ::posix_spawn_file_actions_destroy(&files);
        int status = 0;
        if (error != 0 || ::waitpid(child, &status, 0) != child) return -1;
        m_process = child;
        m_output = ReadFile(output);
        m_events = ReadEventFiles(m_folder.Path());
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    int Run(const std::string& scenario) { return Run(scenario, kRealHelper); }

    /// A program in the folder that stands for the helper and writes its arguments down.
    std::string Helper(const std::string& script, const char* name = "helper") {
        const auto path = m_folder / name;
        WriteFile(path, "#!/bin/sh\n" + script);
        ::chmod(path.c_str(), 0700);
        return path;
    }
    /// One argument a line, begun at the first.
    std::string RecordingHelper() {
        return Helper("printf '%s\\n' \"$@\" >> '" + Arguments().native() + "'\n");
    }
    std::filesystem::path Arguments() const { return m_folder / "arguments"; }

    std::vector<std::filesystem::path> Dumps() const {
        std::vector<std::filesystem::path> dumps;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path())) {
            if (entry.path().extension() == ".dmp") dumps.push_back(entry.path());
        }
        return dumps;
    }
    std::vector<std::uint32_t> EventIds() const {
        std::vector<std::uint32_t> ids;
        for (const CEventEntry& event : m_events) ids.push_back(event.id);
        return ids;
    }
    std::string FirstText() const {
        if (m_events.empty() || m_events[0].strings.empty()) return {};
        return {m_events[0].strings[0].begin(), m_events[0].strings[0].end()};
    }

    const std::string kRealHelper = std::string(QUORBEL_PROGRAMS) + "/QbMiniDump.exe";
    const std::string kNoHelper = "/nonexistent";
    CTemporaryFolder m_folder;
    pid_t m_process = 0;
    std::string m_output;
    std::vector<CEventEntry> m_events;
};

/// Dumps, which need that a process may be traced.
class CrashDumps : public CrashReports {
 protected:
    void SetUp() override {
        CrashReports::SetUp();
        if (!IsSkipped() && !CanTrace()) GTEST_SKIP() << "no process may be traced here";
    }

 private:
    static bool CanTrace() {
        const pid_t child = ::fork();
        if (child == 0) {
            for (;;) ::pause();
        }
        const bool can = ::ptrace(PTRACE_SEIZE, child, nullptr, nullptr) == 0;
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        return can;
    }
};

struct CKind {
    const char* scenario;
    const char* code;
    const char* firstLine;  ///< of the text, as a pattern
};

TEST_F(CrashReports, AFaultIsCaughtWithItsKindAndThePlaceItHappenedAt) {
    constexpr CKind kKinds[] = {
        {"write", "C0000005", R"(0xC0000005@0x[0-9A-F]{16} \(0x1, 0x0\)RIP: 0x[0-9A-F]+(0x[0-9A-F]{16} ?)+)"},
        {"read", "C0000005", R"(0xC0000005@0x[0-9A-F]{16} \(0x0, 0xFFFFFFFF\)RIP: .*)"},
        {"call", "C0000005", R"(0xC0000005@0x0000000000000000 \(0x8, 0x0\)RIP: 0x0.*)"},
        {"divide", "C0000094", R"(0xC0000094@0x[0-9A-F]{16} \(\)RIP: .*)"},
        {"trap", "C000001D", R"(0xC000001D@0x[0-9A-F]{16} \(\)RIP: .*)"},
        {"breakpoint", "80000003", R"(0x80000003@0x[0-9A-F]{16} \(\)RIP: .*)"},
        {"on a thread", "C0000005", R"(0xC0000005@0x[0-9A-F]{16} \(0x1, 0x0\)RIP: .*)"},
        {"overflow", "C0000005", R"(0xC0000005@0x[0-9A-F]{16} \(0x1, 0x[0-9A-F]+\)RIP: .*)"},
    };
    for (const CKind& kind : kKinds) {
        SCOPED_TRACE(kind.scenario);
        std::filesystem::remove(m_folder / "events.jsonl");
        std::filesystem::remove(Arguments());
        EXPECT_EQ(Run(kind.scenario, RecordingHelper()), 0);
        // The two threads go on by themselves.
        EXPECT_THAT(m_output, testing::AnyOf("caught\nafter the dump\nended well\n",
                                             "after the dump\ncaught\nended well\n"));
        EXPECT_THAT(EventIds(), ElementsAre(message::kCaughtException));
        EXPECT_TRUE(std::regex_match(FirstText(), std::regex(kind.firstLine))) << FirstText();
        EXPECT_THAT(ReadFile(Arguments()), HasSubstr("Faulty Service" + std::string(kind.code)));
    }
}

TEST_F(CrashReports, TheHelperIsToldTheProcessTheThreadTheFaultAndTheFile) {
    ASSERT_EQ(Run("write", RecordingHelper()), 0);
    std::ostringstream process;
    process << std::uppercase << std::hex << m_process;
    const std::string numbers = "-p\n" + process.str() + "\n-t\n" + process.str() + "\n-e\n0x";
    const std::string arguments = ReadFile(Arguments());
    EXPECT_EQ(arguments.substr(0, numbers.size()), numbers);
    EXPECT_TRUE(std::regex_match(arguments.substr(numbers.size()),
                                 std::regex("[0-9A-F]{16}\n-f\n" + m_folder.Path().native() +
                                            "/Faulty ServiceC0000005[0-9]{14}\\.dmp\n")))
        << arguments;
}

TEST_F(CrashReports, AnInvalidParameterIsReportedWithoutAFaultAndCaught) {
    ASSERT_EQ(Run("parameter", RecordingHelper()), 0);
    EXPECT_EQ(FirstText(), "\"invalid system call parameter\"");
    const std::string arguments = ReadFile(Arguments());
    EXPECT_THAT(arguments, HasSubstr("-e\n0x0000000000000000\n"));
    EXPECT_THAT(arguments, HasSubstr("/Faulty ServiceInvalidParameter2"));
}

TEST_F(CrashReports, WhatTheFaultingCodeHeldIsLetGoOf) {
    EXPECT_EQ(Run("locals", kNoHelper), 0);
    EXPECT_THAT(m_output, HasSubstr("unwound\ncaught\n"));
}

TEST_F(CrashReports, AThreadMayFaultAgain) {
    EXPECT_EQ(Run("many", RecordingHelper()), 0);
    EXPECT_THAT(EventIds(),
                ElementsAre(message::kCaughtException, message::kCaughtException, message::kCaughtException));
}

TEST_F(CrashReports, AFaultThatNothingCanCatchIsReportedAndEndsTheProcessWithFailure) {
    for (const char* const scenario :
         {"uncaught", "uncaught on a thread", "overflow uncaught", "library", "callback", "noexcept", "twice",
          "sent", "parameter uncaught", "exception", "abort", "abort on a thread", "pure virtual",
          "terminate", "double free"}) {
        if (kAddressSanitizer && std::string_view(scenario) == "double free") continue;
        SCOPED_TRACE(scenario);
        std::filesystem::remove(m_folder / "events.jsonl");
        std::filesystem::remove(Arguments());
        EXPECT_EQ(Run(scenario, RecordingHelper()), 1);
        EXPECT_THAT(m_output, Not(HasSubstr("ended well")));
        EXPECT_THAT(EventIds(), ElementsAre(message::kUnhandledFault));
        EXPECT_THAT(ReadFile(Arguments()), HasSubstr(".dmp"));
    }
}

TEST_F(CrashReports, TheLastWordsTellTheFault) {
    EXPECT_EQ(Run("uncaught", kNoHelper), 1);
    EXPECT_TRUE(std::regex_match(
        FirstText(),
        std::regex("0xC0000005@0x[0-9A-F]{16} \\(0x1, 0x0\\)\nRIP: 0x[0-9A-F]+\n(0x[1-9A-F][0-9A-F]* "
                   "0x[0-9A-F]+\n)*")))
        << FirstText();
    ASSERT_EQ(m_events.size(), 1U);
    EXPECT_EQ(m_events[0].severity, EventSeverity::Error);
    EXPECT_EQ(m_events[0].text, L"A fault ended the service: " + m_events[0].strings[0]);
    EXPECT_EQ(m_events[0].user, "");
}

TEST_F(CrashReports, AnExceptionThatNobodyCatchesIsNamed) {
    EXPECT_EQ(Run("exception", kNoHelper), 1);
    EXPECT_EQ(FirstText(), "uncaught exception: nobody's");
}

TEST_F(CrashReports, AnAbortTellsWhereItHappened) {
    for (const char* const scenario : {"abort", "terminate"}) {
        SCOPED_TRACE(scenario);
        std::filesystem::remove(m_folder / "events.jsonl");
        std::filesystem::remove(Arguments());
        EXPECT_EQ(Run(scenario, RecordingHelper()), 1);
        EXPECT_TRUE(std::regex_search(FirstText(), std::regex("^0x40000015@0x[0-9A-F]{16} \\(\\)\nRIP: 0x")))
            << FirstText();
        const std::string arguments = ReadFile(Arguments());
        EXPECT_THAT(arguments, HasSubstr("/Faulty Service40000015"));
        EXPECT_EQ(arguments.find("-f\n"), arguments.rfind("-f\n")) << "one report";
    }
}

TEST_F(CrashReports, WithoutAHelperThatWorksAnEventTellsOfTheDumpAndEverythingElseIsTheSame) {
    const std::string hangs = Helper("exec sleep 1000\n", "hangs");
    const std::string fails = Helper("exit 3\n", "fails");
    struct {
        std::string helper;
        const char* milliseconds;
        ErrorCode error;
    } const kHelpers[] = {{kNoHelper, "60000", ErrorCode::FileNotFound},
                          {hangs, "100", ErrorCode::WaitTimeout},
                          {fails, "60000", ErrorCode::GenFailure}};
    for (const auto& [helper, milliseconds, error] : kHelpers) {
        SCOPED_TRACE(helper);
        std::filesystem::remove(m_folder / "events.jsonl");
        EXPECT_EQ(Run("write", helper, milliseconds), 0);
        // Two threads write them.
        EXPECT_THAT(EventIds(),
                    testing::UnorderedElementsAre(message::kCaughtException, message::kSystemErrorWithText));
        for (const CEventEntry& event : m_events) {
            if (event.id != message::kSystemErrorWithText) continue;
            EXPECT_THAT(event.strings,
                        ElementsAre(std::to_wstring(ToNumber(error)), testing::_,
                                    HasSubstr(m_folder.Path().wstring() + L"/Faulty ServiceC0000005")));
        }
        std::filesystem::remove(m_folder / "events.jsonl");
        EXPECT_EQ(Run("uncaught", helper, milliseconds), 1);
        EXPECT_THAT(EventIds(), ElementsAre(message::kUnhandledFault));
    }
}

TEST_F(CrashReports, TwoFaultsAtOnceEndWell) {
    EXPECT_EQ(Run("two caught", RecordingHelper()), 0);
    EXPECT_THAT(EventIds(), ElementsAre(message::kCaughtException, message::kCaughtException));
    std::filesystem::remove(m_folder / "events.jsonl");
    EXPECT_EQ(Run("two uncaught", RecordingHelper()), 1);
    EXPECT_THAT(EventIds(), ElementsAre(message::kUnhandledFault));
    std::filesystem::remove(m_folder / "events.jsonl");
    EXPECT_EQ(Run("caught and uncaught", RecordingHelper()), 1);
    EXPECT_THAT(EventIds(), testing::Contains(message::kUnhandledFault).Times(1));
}

/// What the debugger says of a dump.
std::string Debug(const std::filesystem::path& dump, const std::string& commands) {
    const std::string command = "DEBUGINFOD_URLS= gdb -nx -batch " + commands +
                                " '" QUORBEL_FAULTY_PROGRAM "' '" + dump.native() + "' 2>&1";
    const std::unique_ptr<FILE, int (*)(FILE*)> output(::popen(command.c_str(), "r"), ::pclose);
    std::string text;
    for (std::array<char, 4096> some;
         const std::size_t read = ::fread(some.data(), 1, some.size(), output.get());)
        text.append(some.data(), read);
    return text;
}

TEST_F(CrashDumps, ADumpOpensAtTheFaultWithEveryThread) {
    ASSERT_EQ(Run("on a thread"), 0);
    const auto dumps = Dumps();
    ASSERT_EQ(dumps.size(), 1U);
    EXPECT_EQ(std::filesystem::status(dumps[0]).permissions(), std::filesystem::perms(0600));
    const std::string text = Debug(
        dumps[0],
        "-ex 'bt' -ex 'print $_siginfo.si_signo' -ex 'info sharedlibrary' -ex 'thread apply all bt 30'");
    EXPECT_THAT(text, HasSubstr("#0  0x"));
    EXPECT_THAT(text, MatchesRegex("(.|\n)*\n#0 [^\n]* quorbel::WriteToNull \\(\\)(.|\n)*"));
    EXPECT_THAT(text, HasSubstr("Try")) << "the stack above";
    EXPECT_THAT(text, HasSubstr("$1 = 11"));
    EXPECT_THAT(text, HasSubstr("libstdc++.so"));
    EXPECT_THAT(text, HasSubstr("CCrashReports::RunHelper")) << "of another thread";
    EXPECT_THAT(text, HasSubstr("main (")) << "of the one that waits";
}

TEST_F(CrashDumps, ACallOfNothingIsSeenWithItsCaller) {
    ASSERT_EQ(Run("call"), 0);
    ASSERT_EQ(Dumps().size(), 1U);
    EXPECT_THAT(Debug(Dumps()[0], "-ex 'bt 2'"),
                MatchesRegex("(.|\n)*#0  0x0000000000000000 in .*\n#1 [^\n]* quorbel::CallNull (.|\n)*"));
}

TEST_F(CrashDumps, ADumpOfWhatEndsTheProcessIsWhole) {
    for (const char* const scenario : {"library", "noexcept", "overflow uncaught", "parameter uncaught"}) {
        SCOPED_TRACE(scenario);
        for (const auto& dump : Dumps()) std::filesystem::remove(dump);
        ASSERT_EQ(Run(scenario), 1);
        ASSERT_EQ(Dumps().size(), 1U);
        EXPECT_THAT(Debug(Dumps()[0], "-ex 'bt -3'"),
                    HasSubstr(scenario == std::string("overflow uncaught") ? "clone" : "main ("));
    }
}

TEST_F(CrashDumps, ThreadsMayEndWhileTheyAreLookedAt) {
    EXPECT_EQ(Run("crowd"), 0);
    EXPECT_EQ(Dumps().size(), 5U);
    EXPECT_EQ(m_events.size(), 5U);
}

TEST_F(CrashDumps, AFullDiskLeavesNoPartOfADump) {
    EXPECT_EQ(Run("write", Helper("ulimit -f 16\nexec '" + kRealHelper + "' \"$@\" 2> '" +
                                  (m_folder / "said").native() + "'\n")),
              0);
    EXPECT_THAT(ReadFile(m_folder / "said"), MatchesRegex("QbMiniDump: .*\\.dmp: .*\n"));
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path()))
        EXPECT_THAT(entry.path().filename().native(), Not(HasSubstr(".dmp")));
}

TEST_F(CrashDumps, TheHelperSaysWhatItCannotFind) {
    const std::string process = std::to_string(::getpid());
    std::ostringstream own;
    own << std::hex << ::getpid();
    const std::pair<std::string, std::string> kWrong[] = {
        {"-p 7FFFFFFF -t 1 -e 0x0", "there is no process 2147483647"},
        {"-p " + own.str() + " -t 1 -e 0x0", "process " + process + " has no thread 1"},
        {"-p " + own.str() + " -t " + own.str() + " -e 0x10", "no fault is described at the address given"},
    };
    for (const auto& [arguments, message] : kWrong) {
        const std::string command =
            kRealHelper + " " + arguments + " -f '" + (m_folder / "x.dmp").native() + "' 2>&1";
        const std::unique_ptr<FILE, int (*)(FILE*)> output(::popen(command.c_str(), "r"), ::pclose);
        std::string text(1000, '\0');
        text.resize(::fread(text.data(), 1, text.size(), output.get()));
        EXPECT_EQ(text, "QbMiniDump: " + message + "\n");
    }
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.Path()));
}

}  // namespace
}  // namespace quorbel
