#pragma once

#include <new>

#include "platform/com/Com.h"

namespace quorbel {

/// Runs the body of an interface's method: want of memory, the one exception that our code lets happen, is
/// E_OUTOFMEMORY.
template <class Body>
HRESULT AtBorder(Body&& body) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorbel
