#pragma once

#include <new>
#include <source_location>

#include "platform/com/Com.h"
#include "platform/fault/Faults.h"

namespace quorbel {

/// Runs the body of an interface's method: want of memory, the one exception that our code lets happen, is
/// E_OUTOFMEMORY; a fault is E_UNEXPECTED, and its event is written.
template <class Body>
HRESULT AtBorder(Body&& body, std::source_location where = std::source_location::current()) {
    try {
        const CFaultScope scope;
        return body();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (CException*) {
        TakeCaughtFault(where);
        return E_UNEXPECTED;
    }
}

}  // namespace quorbel
