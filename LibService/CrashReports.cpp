#include "LibService/CrashReports.h"

#include <ctime>

#include "LibService/FaultResponse.h"
#include "platform/Program.h"
#include "platform/Text.h"
#include "platform/Thread.h"
#include "platform/fault/FaultText.h"
#include "platform/fault/PreparedProgram.h"

namespace quorbel {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr const char* kHelper = "QbMiniDump.exe";

/// The part of kLongestEndSeconds that the dump may take; the rest is for the last words.
constexpr milliseconds kLongestDump = std::chrono::seconds(kLongestEndSeconds - 20);
/// What the thread needs beside the helper's time.
constexpr milliseconds kAnswerTime = std::chrono::seconds(5);

using CPathText = CFixedText<8192>;

void AppendLocalTime(CPathText& path) noexcept {
    const std::time_t now = std::time(nullptr);
    std::tm time{};
    ::localtime_r(&now, &time);
    path.AppendDecimal(static_cast<std::uint64_t>(time.tm_year + 1900), 4);
    for (const int part : {time.tm_mon + 1, time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec})
        path.AppendDecimal(static_cast<std::uint64_t>(part), 2);
}

/// Waits for an automatic event; false when the time has passed.
bool Take(CEvent& event, steady_clock::time_point deadline) noexcept {
    while (!event.Test()) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
        if (left <= milliseconds(0)) return false;
        WaitUntilSet(event, left);
    }
    return true;
}

/// What follows the service's name in the path of a dump.
void AppendName(const CFaultRecord* fault, CPathText& path) noexcept {
    if (fault) {
        path.AppendHex(fault->code);
    } else {
        path.Append("InvalidParameter");
    }
    AppendLocalTime(path);
    path.Append(".dmp");
}

/// Runs what comes after a report: whatever goes wrong with it stays there.
template <class Body>
void RunGuarded(const Body& body) noexcept try {
    const CFaultScope scope;
    body();
} catch (...) {
    TakeCaughtFault();  // or want of memory, of which nothing can be told
}

/// As good as never: far enough that sums with it do not overflow.
steady_clock::time_point Never() noexcept {
    return steady_clock::now() + std::chrono::hours(24 * 365);
}

CResult<std::filesystem::path> HelperPath(const std::filesystem::path& given) {
    if (!given.empty()) return given;
    const auto program = ProgramPath();
    if (!program.IsOk()) return program.Error();
    return program.Value().parent_path() / kHelper;
}

}  // namespace

CStatus CCrashReports::Create(COptions options, std::unique_ptr<CCrashReports>& reports) {
    const auto path = HelperPath(options.helper);
    if (!path.IsOk()) return SystemError(path.Error());
    auto helper = CPreparedProgram::Create(path.Value());
    if (!helper.IsOk()) return SystemError(helper.Error());
    auto made = std::make_unique<CCrashReports>(std::move(options), std::move(helper).Value());
    RETURN_IF_FAILED(made->Start());
    CFaultResponse::Instance().SetReports(made.get());
    reports = std::move(made);
    return {};
}

CCrashReports::CCrashReports(COptions options, std::unique_ptr<CPreparedProgram> helper)
    : m_options(std::move(options)),
      m_helper(std::move(helper)),
      m_fileStart((m_options.folder / ToUtf8(m_options.serviceName)).native()) {}

CStatus CCrashReports::Start() {
    for (const auto event : {&m_turn, &m_request, &m_done, &m_stop}) {
        auto created = CEvent::Create(EventReset::Auto);
        if (!created.IsOk()) return SystemError(created.Error());
        *event = std::move(created).Value();
    }
    m_turn->Set();
    // The time zone is read here, and no more when a dump is named.
    CPathText ignored;
    AppendLocalTime(ignored);
    auto thread = StartThread("CrashReports", [this] { Run(); });
    if (!thread.IsOk()) return SystemError(thread.Error());
    m_thread = std::move(thread).Value();
    return {};
}

CCrashReports::~CCrashReports() {
    if (!m_thread.joinable()) return;
    CFaultResponse::Instance().SetReports(nullptr);
    Ignore(Take(*m_turn, Never()));  // whoever has it will be served
    m_stop->Set();
    m_thread.join();
}

void CCrashReports::Write(const CFaultRecord* fault) noexcept {
    if (CurrentThreadId() == m_ownThread) return;
    Ignore(Take(*m_turn, Never()));
    if (!m_hasEnded) {
        Request(fault, Then::GoOn);
        Ignore(Take(*m_done, Never()));
        m_fault = nullptr;
    }
    m_turn->Set();
}

void CCrashReports::WriteAtTheEnd(const CFaultRecord* fault) noexcept {
    if (CurrentThreadId() == m_ownThread) return;
    // The turn may be another's first, with a helper of its own to wait for.
    const auto bound = std::min(2 * m_options.patience + kAnswerTime, kLongestDump);
    const auto deadline = steady_clock::now() + bound;
    if (!Take(*m_turn, deadline) || m_hasEnded) return;
    Request(fault, Then::End);
    Ignore(Take(*m_done, deadline));
}

void CCrashReports::Request(const CFaultRecord* fault, Then then) noexcept {
    m_fault = fault;
    m_then = then;
    m_faultingThread = CurrentThreadId();
    m_request->Set();
}

void CCrashReports::Run() {
    m_ownThread = CurrentThreadId();
    for (;;) {
        const auto woken = WaitForAny({m_request.get(), m_stop.get()});
        if (!woken.IsOk() || woken.Value() == 1) return End();
        Serve();
    }
}

void CCrashReports::End() noexcept {
    CFaultResponse::Instance().SetReports(nullptr);
    // In this order: who has not seen that it has ended waits already, or will find it done.
    m_hasEnded = true;
    m_done->Set();
}

void CCrashReports::Serve() {
    CPathText file;
    file.Append(m_fileStart);
    AppendName(m_fault, file);
    const ErrorCode outcome = RunHelper(file.Text());
    // An event needs memory and locks, which what ends the process may have damaged or left taken; and the
    // end waits for nothing.
    const bool isToTell = outcome != ErrorCode::Success && m_then == Then::GoOn;
    m_done->Set();
    RunGuarded([this] {
        if (m_options.afterDump) m_options.afterDump();
    });
    if (isToTell) RunGuarded([&] { SystemError(outcome, FromUtf8(file.View())).Report(); });
}

ErrorCode CCrashReports::RunHelper(char* file) const noexcept {
    CFixedText<40> process;
    process.AppendHex(CurrentProcessId());
    CFixedText<40> thread;
    thread.AppendHex(m_faultingThread);
    CFixedText<40> address;
    address.Append("0x").AppendHex(reinterpret_cast<std::uintptr_t>(m_fault), 16);
    // A program takes its arguments to be its own to change.
    CFixedText<4> p, t, e, f;
    p.Append("-p"), t.Append("-t"), e.Append("-e"), f.Append("-f");
    char* const arguments[] = {const_cast<char*>(m_helper->Path()),  // NOLINT: another process's copy
                               p.Text(),
                               process.Text(),
                               t.Text(),
                               thread.Text(),
                               e.Text(),
                               address.Text(),
                               f.Text(),
                               file,
                               nullptr};
    return m_helper->Run(arguments, m_options.patience);
}

}  // namespace quorbel
