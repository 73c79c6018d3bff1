#pragma once

#include "platform/com/Com.h"

namespace quorbel {

/// Bytes that are read or written one after the other.
class ISequentialStream : public IUnknown {
 public:
    static constexpr GUID kId{0x0C733A30, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0, 0xAA, 0, 0x44, 0x77, 0x3D}};
    /// Reads up to `size` bytes; fewer (S_OK or S_FALSE) at the end only.
    virtual HRESULT Read(void* buffer, std::uint32_t size, std::uint32_t* read) = 0;
    virtual HRESULT Write(const void* buffer, std::uint32_t size, std::uint32_t* written) = 0;
};

/// A stream with a position; only its place below ISequentialStream is used.
class IStream : public ISequentialStream {
 public:
    using Base = ISequentialStream;
    static constexpr GUID kId{0x0000000C, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
};

}  // namespace quorbel
