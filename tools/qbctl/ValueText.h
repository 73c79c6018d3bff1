#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "platform/registry/Key.h"

namespace quorbel {

/// "REG_SZ"; a type without a name as "REG_TYPE_" and its number.
std::wstring TypeName(ValueType type);
/// The types that a value can be typed in; none for others.
std::optional<ValueType> ParseType(std::wstring_view name);

/// A value's data as typed, or none when it does not fit the type. Texts of REG_MULTI_SZ are separated by
/// `separator`.
std::optional<CValue> ParseData(ValueType type, std::wstring_view data, std::wstring_view separator);

/// For people.
std::wstring FormatData(const CValue& value);
/// Texts as strings, numbers as numbers, lists as arrays, all else as hexadecimal bytes.
nlohmann::json DataToJson(const CValue& value);

}  // namespace quorbel
