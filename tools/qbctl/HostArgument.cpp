#include "tools/qbctl/HostArgument.h"

#include <algorithm>

#include "platform/Text.h"

namespace quorbel {

namespace {

bool IsNameCharacter(wchar_t character) {
    return (character < 0x80 && FoldCase(character) >= L'a' && FoldCase(character) <= L'z') ||
           (character >= L'0' && character <= L'9') || character == L'.' || character == L'-' ||
           character == L'_';
}

bool IsAddressCharacter(wchar_t character) {
    return HexDigit(character) >= 0 || character == L':' || character == L'.';
}

}  // namespace

bool IsHostName(std::wstring_view name) {
    if (name == L"*" || name == L"+") return true;
    if (name.size() > 2 && name.front() == L'[' && name.back() == L']') {
        name = name.substr(1, name.size() - 2);
        return std::all_of(name.begin(), name.end(), IsAddressCharacter);
    }
    return !name.empty() && std::all_of(name.begin(), name.end(), IsNameCharacter);
}

std::optional<int> ParseNumber(std::wstring_view typed, int least, int most) {
    const auto number = TakeDecimal(typed);
    if (!number || !typed.empty() || *number > static_cast<std::uint64_t>(most)) return std::nullopt;
    const int value = static_cast<int>(*number);
    return value < least ? std::nullopt : std::optional(value);
}

std::optional<CHostArgument> ParseHostAndPort(std::wstring_view typed) {
    CHostArgument parsed;
    const std::size_t colon = typed.find(L':', typed.starts_with(L'[') ? typed.find(L']') : 0);
    if (colon != typed.npos) {
        parsed.port = ParseNumber(typed.substr(colon + 1), 1, 65535);
        if (!parsed.port) return std::nullopt;
    }
    parsed.host = FoldCase(typed.substr(0, colon));
    return IsHostName(parsed.host) ? std::optional(parsed) : std::nullopt;
}

}  // namespace quorbel
