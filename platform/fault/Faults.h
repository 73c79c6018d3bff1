#pragma once

#include <cstdint>
#include <memory>
#include <source_location>
#include <stdexcept>
#include <string_view>

#include "platform/Error.h"
#include "platform/framework/Exception.h"

namespace quorbel {

struct CFaultRecord;

/// While one lives, a fault of its thread leaves the faulting instruction as an exception, a pointer to a
/// CException, if everything up to here is code that exceptions can pass. It stands first in the try block
/// whose handlers catch it. Nothing catches what faults on a thread without: that ends the process.
class CFaultScope {
 public:
    CFaultScope() noexcept;
    ~CFaultScope();
    CFaultScope(const CFaultScope&) = delete;
    CFaultScope& operator=(const CFaultScope&) = delete;
    static void* operator new(std::size_t) = delete;

 private:
    const CFaultScope* const m_outer;
};

/// For a handler: takes the exception being handled if it is a framework's, writes its event and deletes it,
/// so that it must not be thrown again. False for any other exception, which is left as it is.
bool TakeCaughtFault(std::source_location where = std::source_location::current()) noexcept;

/// Runs the body within a scope; of a fault the event is written, and what is thrown is a std::runtime_error:
/// for whoever keeps an exception and throws it again, which only one that is no pointer survives.
template <class Body>
auto FaultAsError(Body&& body, std::source_location where = std::source_location::current()) {
    try {
        const CFaultScope scope;
        return body();
    } catch (CException*) {
        TakeCaughtFault(where);
        throw std::runtime_error("a fault");
    }
}

/// What the process does about faults. All but OnCaught run in signal handlers, on any thread.
class IFaultResponse {
 public:
    enum class Wait {
        UntilWritten,  ///< the thread goes on afterwards
        Bounded        ///< the process ends: neither allocates nor waits long for anybody
    };

    virtual ~IFaultResponse() = default;
    /// Has a crash report written and waits for it; null is an invalid parameter.
    virtual void WriteReport(const CFaultRecord* fault, Wait wait) noexcept = 0;
    /// Throws the exception, by pointer; returns when it cannot be made, which ends the process.
    virtual void Throw(const CFaultRecord* fault) = 0;
    /// Tells of the fault, or the text, that ends the process. Neither allocates nor locks.
    virtual void WriteLastWords(const CFaultRecord& fault) noexcept = 0;
    virtual void WriteLastWords(std::string_view text) noexcept = 0;
    /// Tells of an exception that was caught by TakeCaughtFault.
    virtual void OnCaught(const CException& exception, const std::source_location& where) noexcept = 0;
};

/// Sets the handlers of faults, of invalid parameters, of abort() and of std::terminate(), which an exception
/// that nobody catches calls, for the process, and gives the calling thread a stack for them. The response
/// lives to the end of the process, whose exit status is 1 when one of them ends it.
ErrorCode HandleFaults(IFaultResponse& response);

/// The bound of everything that is done between a fault that ends the process and its end.
inline constexpr unsigned kLongestEndSeconds = 90;

}  // namespace quorbel
