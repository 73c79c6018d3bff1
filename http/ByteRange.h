#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace quorbel {

/// What a Range header field (RFC 9110, section 14.2) asks of a file.
struct CByteRange {
    enum class Kind {
        Whole,          ///< no range that is understood: the whole file
        Part,           ///< `first` and `length` lie within the file; length may be all of it
        Unsatisfiable,  ///< it begins at or beyond the file's end
    };
    Kind kind = Kind::Whole;
    std::uint64_t first = 0;   ///< bytes from the file's start
    std::uint64_t length = 0;  ///< bytes

    /// Reads "bytes=first-last" or "bytes=first-"; of several ranges the first counts. A last byte beyond the
    /// end is cut to the file; `cap` bounds the length of an open-ended range. A reversed range, a number of
    /// more than 64 bits, another unit and a suffix range are the whole file.
    static CByteRange Parse(std::wstring_view value, std::uint64_t size, std::uint64_t cap);
};

}  // namespace quorbel
