#include "platform/com/Apartment.h"

#include <cstddef>

namespace quorbel {

namespace {

thread_local constinit std::size_t t_entered = 0;

}  // namespace

CComApartment::CComApartment() noexcept : m_result(t_entered++ == 0 ? S_OK : S_FALSE) {}

CComApartment::~CComApartment() {
    --t_entered;
}

}  // namespace quorbel
