#pragma once

#include <new>

#include "platform/com/Com.h"

namespace quorbel {

/// Runs the body of an interface's method, out of which no exception may come: want of memory is
/// E_OUTOFMEMORY.
template <class Body>
HRESULT AtBorder(Body&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorbel
