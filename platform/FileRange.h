#pragma once

#include <cstdint>
#include <memory>

#include "platform/File.h"

namespace quorbel {

/// A part of an open file, shown by a stream buffer whose bytes are just these, so that a transport can send
/// them without reading them through the stream.
class IFileRange {
 public:
    virtual ~IFileRange() = default;
    /// None once the buffer was closed.
    virtual std::shared_ptr<const CFile> File() const = 0;
    virtual std::uint64_t Offset() const noexcept = 0;  ///< in bytes
    virtual std::uint64_t Length() const noexcept = 0;  ///< in bytes
};

}  // namespace quorbel
