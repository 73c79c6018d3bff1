#include "LibService/FaultResponse.h"

#include <new>

#include "LibService/CException.h"
#include "LibService/CrashReports.h"
#include "LibService/EventLog.h"
#include "platform/fault/FaultText.h"

namespace quorbel {

CFaultResponse& CFaultResponse::Instance() {
    // Never destroyed: threads may fault until the very end of the process.
    static auto& instance = *new CFaultResponse;  // NOLINT(cppcoreguidelines-owning-memory)
    return instance;
}

CStatus CFaultResponse::SetUp() {
    // Made now: a handler of a fault must not.
    Ignore(&CEventLog::Instance());
    RETURN_IF_SYSTEM_ERROR(HandleFaults(*this));
    return {};
}

void CFaultResponse::WriteReport(const CFaultRecord* fault, Wait wait) noexcept {
    CCrashReports* const reports = m_reports;
    if (!reports) return;
    switch (wait) {
        case Wait::UntilWritten: reports->Write(fault); return;
        case Wait::Bounded: reports->WriteAtTheEnd(fault); return;
    }
}

void CFaultResponse::Throw(const CFaultRecord* fault) {
    CCException* exception = nullptr;
    try {
        exception = fault ? new CCException(*fault) : new CCException(L"\"invalid system call parameter\"");
    } catch (const std::bad_alloc&) {
        return;
    }
    throw exception;  // NOLINT: the framework's way; its catcher deletes it
}

void CFaultResponse::WriteLastWords(const CFaultRecord& fault) noexcept {
    WriteLastWords(DescribeFault(fault, FaultTextForm::LastWords).View());
}

void CFaultResponse::WriteLastWords(std::string_view text) noexcept {
    CEventLog::Instance().WriteLastWords(text);
}

void CFaultResponse::OnCaught(const CException& exception, const std::source_location& where) noexcept try {
    CaughtException(exception, where).Report();
} catch (const std::exception&) {
    return;  // out of memory: the event is dropped
}

}  // namespace quorbel
