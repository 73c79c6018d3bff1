#pragma once

#include <cstddef>

namespace quorbel {

/// What the framework throws: always by pointer to an object made with new, which its catcher deletes.
class CException {
 public:
    CException() = default;
    virtual ~CException() = default;
    CException(const CException&) = delete;
    CException& operator=(const CException&) = delete;

    /// Copies the text, cut to `size` characters with its end, into the buffer. False, and nothing is copied,
    /// without a buffer or with one of no size.
    virtual bool GetErrorMessage(wchar_t* buffer, std::size_t size) const noexcept = 0;
};

}  // namespace quorbel
