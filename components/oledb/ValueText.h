#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "components/oledb/Rows.h"

namespace quorbel {

/// A value as one of the column's type: whole numbers for I2, I4 and I8, double for R4 and R8, bool for Bool;
/// a Numeric is whole, double or decimal; the others stay as they are. NULL when the type cannot hold it.
CSqlValue FitToColumn(CSqlColumn::Type type, const CSqlValue& value) noexcept;

/// Room for any number's text.
using CNumberText = std::array<char, 64>;

/// The text of a truth or number that fits the column, in `buffer` or the value itself. Floating point is
/// rounded when it would have more than `width` characters; a text that is longer nevertheless does not fit.
std::string_view NumberText(CSqlColumn::Type type, const CSqlValue& value, std::size_t width,
                            CNumberText& buffer) noexcept;

/// Upper-case hexadecimal digits. Throws std::bad_alloc.
std::string HexText(std::string_view bytes);

}  // namespace quorbel
