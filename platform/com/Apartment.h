#pragma once

#include "platform/com/Com.h"

namespace quorbel {

/// The calling thread's place in the process's multithreaded apartment, the only kind there is here, for the
/// object's life. Lives and dies on one thread.
class CComApartment {
 public:
    CComApartment() noexcept;
    ~CComApartment();
    CComApartment(const CComApartment&) = delete;
    CComApartment& operator=(const CComApartment&) = delete;

    /// S_OK, or S_FALSE when the thread had entered before and not left.
    HRESULT Result() const noexcept { return m_result; }

 private:
    const HRESULT m_result;
};

}  // namespace quorbel
