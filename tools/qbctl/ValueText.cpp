#include "tools/qbctl/ValueText.h"

#include <array>

#include "platform/Text.h"

namespace quorbel {

namespace {

struct CTypeName {
    ValueType type;
    const wchar_t* name;
};

/// The first seven can be typed in.
constexpr std::array kTypeNames{
    CTypeName{ValueType::Text, L"REG_SZ"},
    CTypeName{ValueType::ExpandableText, L"REG_EXPAND_SZ"},
    CTypeName{ValueType::MultiText, L"REG_MULTI_SZ"},
    CTypeName{ValueType::Number32, L"REG_DWORD"},
    CTypeName{ValueType::Number64, L"REG_QWORD"},
    CTypeName{ValueType::Binary, L"REG_BINARY"},
    CTypeName{ValueType::None, L"REG_NONE"},
    CTypeName{ValueType::Number32BigEndian, L"REG_DWORD_BIG_ENDIAN"},
    CTypeName{ValueType::Link, L"REG_LINK"},
};
constexpr std::size_t kTypesToType = 7;

std::optional<std::uint64_t> ParseNumber(std::wstring_view text, std::uint64_t largest) {
    std::optional<std::uint64_t> number;
    if (StartsWithNoCase(text, L"0x")) {
        number = ParseHex(text.substr(2), 16);
    } else {
        number = TakeDecimal(text);
        if (!text.empty()) return std::nullopt;
    }
    if (!number || *number > largest) return std::nullopt;
    return number;
}

std::optional<std::string> ParseBytes(std::wstring_view text) {
    if (text.size() % 2 != 0) return std::nullopt;
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int high = HexDigit(text[i]);
        const int low = HexDigit(text[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes.push_back(static_cast<char>(high << 4 | low));
    }
    return bytes;
}

std::vector<std::wstring> Split(std::wstring_view text, std::wstring_view separator) {
    std::vector<std::wstring> texts;
    if (text.empty()) return texts;
    for (;;) {
        const std::size_t end = separator.empty() ? text.npos : text.find(separator);
        texts.emplace_back(text.substr(0, end));
        if (end == text.npos) return texts;
        text.remove_prefix(end + separator.size());
    }
}

std::wstring FormatBytes(std::string_view bytes) {
    std::wstring text;
    for (char byte : bytes) text += ToHex(static_cast<unsigned char>(byte), 2);
    return text;
}

std::wstring FormatTexts(const std::vector<std::wstring>& texts) {
    std::wstring joined;
    for (const std::wstring& text : texts) joined += (joined.empty() ? L"" : L"\\0") + text;
    return joined;
}

}  // namespace

std::wstring TypeName(ValueType type) {
    for (const CTypeName& known : kTypeNames) {
        if (known.type == type) return known.name;
    }
    return L"REG_TYPE_" + std::to_wstring(static_cast<std::uint32_t>(type));
}

std::optional<ValueType> ParseType(std::wstring_view name) {
    for (std::size_t i = 0; i < kTypesToType; ++i) {
        if (EqualNoCase(kTypeNames[i].name, name)) return kTypeNames[i].type;
    }
    return std::nullopt;
}

std::optional<CValue> ParseData(ValueType type, std::wstring_view data, std::wstring_view separator) {
    if (type == ValueType::Text || type == ValueType::ExpandableText) return CValue::FromText(data, type);
    if (type == ValueType::MultiText) return CValue::FromTexts(Split(data, separator));
    if (type == ValueType::Number32) {
        const auto number = ParseNumber(data, 0xFFFF'FFFF);
        if (!number) return std::nullopt;
        return CValue::FromNumber32(static_cast<std::uint32_t>(*number));
    }
    if (type == ValueType::Number64) {
        const auto number = ParseNumber(data, ~std::uint64_t{0});
        if (!number) return std::nullopt;
        return CValue::FromNumber64(*number);
    }
    auto bytes = ParseBytes(data);
    if (!bytes) return std::nullopt;
    return CValue{type, *std::move(bytes)};
}

std::wstring FormatData(const CValue& value) {
    if (value.type == ValueType::Text || value.type == ValueType::ExpandableText) return value.AsText();
    if (value.type == ValueType::MultiText) return FormatTexts(value.AsTexts());
    if (value.type == ValueType::Number32 && value.AsNumber32())
        return L"0x" + FoldCase(ToHex(*value.AsNumber32(), 1));
    if (value.type == ValueType::Number64 && value.AsNumber64())
        return L"0x" + FoldCase(ToHex(*value.AsNumber64(), 1));
    return FormatBytes(value.data);
}

nlohmann::json DataToJson(const CValue& value) {
    if (value.type == ValueType::Text || value.type == ValueType::ExpandableText)
        return ToUtf8(value.AsText());
    if (value.type == ValueType::Number32 && value.AsNumber32()) return *value.AsNumber32();
    if (value.type == ValueType::Number64 && value.AsNumber64()) return *value.AsNumber64();
    if (value.type != ValueType::MultiText) return ToUtf8(FormatBytes(value.data));
    nlohmann::json texts = nlohmann::json::array();
    for (const std::wstring& text : value.AsTexts()) texts.push_back(ToUtf8(text));
    return texts;
}

}  // namespace quorbel
