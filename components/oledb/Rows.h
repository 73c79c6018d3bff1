#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "platform/com/Com.h"

namespace quorbel {

/// What a provider shows of a column.
struct CSqlColumn {
    enum class Type { I2, I4, I8, R4, R8, Numeric, Bool, Text, Variant };

    std::wstring name;
    Type type = Type::Variant;
    std::uint8_t precision = 255;  ///< of Numeric: decimal digits
    std::uint8_t scale = 255;      ///< of Numeric: digits behind the point
};

/// A blob's bytes.
struct CSqlBytes {
    std::string_view bytes;
};
/// A number as decimal text.
struct CSqlDecimal {
    std::string_view digits;
};

/// One value of a row, or of a parameter: NULL, truth, whole number, floating point (R4 when the column says
/// so), decimal number, UTF-8 text or bytes. Refers to memory of whoever gave it.
using CSqlValue =
    std::variant<std::monostate, bool, std::int64_t, double, CSqlDecimal, std::string_view, CSqlBytes>;

/// The rows of a command. One thread at a time.
class ISqlRows {
 public:
    virtual ~ISqlRows() = default;
    virtual std::span<const CSqlColumn> Columns() const = 0;
    /// Goes to the next row; the first call to the first. S_OK, DB_S_ENDOFROWSET, or a failure, after which
    /// it is not called any more.
    virtual HRESULT Next() = 0;
    /// The value of a column, counted from 0, in the current row; valid until Next.
    virtual CSqlValue Value(std::size_t column) = 0;
};

}  // namespace quorbel
