#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace quorbel {

/// Texts by identifier.
using CatalogueTexts = std::unordered_map<std::uint32_t, std::wstring>;

/// Reads a text catalogue (MessageModule.h gives its syntax). Strict: none for anything that does not follow
/// the syntax, for invalid UTF-8, a NUL, or two entries with one identifier.
std::optional<CatalogueTexts> ParseCatalogue(std::string_view catalogue);

}  // namespace quorbel
