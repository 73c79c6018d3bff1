#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/com/Stream.h"

namespace quorbel {

/// The most bytes that a value handed over to a database, or by an action, as a stream may have.
inline constexpr std::size_t kMostStreamBytes = 64 * 1024 * 1024;

/// A stream over a copy of these bytes, for one reader. Throws std::bad_alloc.
CComPtr<ISequentialStream> MakeByteStream(std::string_view bytes);

/// Reads the rest of an object's ISequentialStream. DISP_E_TYPEMISMATCH for an object without one, E_FAIL for
/// more than `most` bytes. Throws std::bad_alloc.
HRESULT ReadAll(IUnknown* object, std::size_t most, std::string& bytes);

}  // namespace quorbel
