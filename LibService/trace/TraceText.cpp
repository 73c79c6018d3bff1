#include "LibService/trace/TraceText.h"

#include <cmath>
#include <cstdio>
#include <limits>
#include <map>

#include "platform/Text.h"

namespace quorbel {

namespace {

using Kind = CTraceInsert::Kind;
using Size = CTraceInsert::Size;

/// What stands after a percent sign when it is an insert, or nearly one.
struct CParsedInsert {
    std::size_t number = 0;
    std::optional<CTraceInsert> insert;  ///< none when its letter defines no argument
};

std::optional<int> TakeNumber(std::wstring_view& text) {
    const auto number = TakeDecimal(text);
    if (!number) return std::nullopt;
    return static_cast<int>(std::min<std::uint64_t>(*number, CTraceInsert::kWidest));
}

Size TakeSize(std::wstring_view& text) {
    if (text.starts_with(L"I") && text.size() >= 3) {
        const Size size = text.starts_with(L"I64") ? Size::Long64 : Size::Unknown;
        text.remove_prefix(3);
        return size;
    }
    const wchar_t first = text.empty() ? L'\0' : text.front();
    if (first != L'l' && first != L'h' && first != L'L') return Size::Plain;
    text.remove_prefix(1);
    if (first == L'L') return Size::Unknown;
    return first == L'l' ? Size::Long : Size::Short;
}

std::optional<Kind> KindOf(wchar_t letter) {
    constexpr std::wstring_view kSigned = L"di";
    constexpr std::wstring_view kUnsigned = L"uxXo";
    constexpr std::wstring_view kFloating = L"fg";
    if (kSigned.find(letter) != kSigned.npos) return Kind::Signed;
    if (kUnsigned.find(letter) != kUnsigned.npos) return Kind::Unsigned;
    if (kFloating.find(letter) != kFloating.npos) return Kind::Floating;
    if (letter == L's') return Kind::String;
    return std::nullopt;
}

bool IsLetter(wchar_t character) {
    return (character >= L'a' && character <= L'z') || (character >= L'A' && character <= L'Z');
}

/// Reads an insert after its percent sign and moves `text` past it; `text` is unchanged when there is none.
std::optional<CParsedInsert> TakeInsert(std::wstring_view& text) {
    std::wstring_view rest = text;
    CTraceInsert insert;
    constexpr std::wstring_view kFlags = L" #+-0";
    if (!rest.empty() && kFlags.find(rest.front()) != kFlags.npos) {
        insert.flag = static_cast<char>(rest.front());
        rest.remove_prefix(1);
    }
    insert.width = TakeNumber(rest);
    if (rest.starts_with(L'.')) {
        rest.remove_prefix(1);
        insert.precision = TakeNumber(rest).value_or(0);
    }
    insert.size = TakeSize(rest);
    if (rest.empty() || !IsLetter(rest.front())) return std::nullopt;
    const auto kind = KindOf(rest.front());
    insert.conversion = static_cast<char>(rest.front());
    rest.remove_prefix(1);
    const auto number = TakeDecimal(rest);
    if (!number || *number == 0) return std::nullopt;
    text = rest;
    if (!kind) return CParsedInsert{static_cast<std::size_t>(*number), std::nullopt};
    insert.kind = *kind;
    return CParsedInsert{static_cast<std::size_t>(*number), insert};
}

template <class T>
T FromDouble(double number) {
    const auto low = static_cast<double>(std::numeric_limits<T>::min());
    const auto high = std::ldexp(1.0, std::numeric_limits<T>::digits);
    return number >= low && number < high ? static_cast<T>(number) : T{0};
}

/// The number that an argument is; none for a text.
template <class T>
std::optional<T> NumberOf(const TraceArgument& argument) {
    const auto& value = argument.Get();
    if (const auto* number = std::get_if<std::int64_t>(&value)) return static_cast<T>(*number);
    if (const auto* number = std::get_if<std::uint64_t>(&value)) return static_cast<T>(*number);
    if (const auto* number = std::get_if<double>(&value)) {
        if constexpr (std::is_integral_v<T>) return FromDouble<T>(*number);
        return static_cast<T>(*number);
    }
    return std::nullopt;
}

/// An integer, cut to the size of its insert: as Half without a size, as Quarter for a short one.
template <class Whole, class Half, class Quarter>
Whole Cut(const TraceArgument& argument, Size size) {
    const Whole number = NumberOf<Whole>(argument).value_or(0);
    switch (size) {
        case Size::Plain:
        case Size::Long: return static_cast<Half>(number);
        case Size::Long64: return number;
        case Size::Short: return static_cast<Quarter>(number);
        case Size::Unknown: return 0;
    }
    return 0;
}

std::wstring TextOf(const TraceArgument& argument) {
    const auto& value = argument.Get();
    if (const auto* text = std::get_if<std::string_view>(&value)) return FromUtf8(*text);
    if (const auto* text = std::get_if<std::wstring_view>(&value)) return std::wstring(*text);
    if (const auto* number = std::get_if<std::int64_t>(&value)) return std::to_wstring(*number);
    if (const auto* number = std::get_if<std::uint64_t>(&value)) return std::to_wstring(*number);
    return std::to_wstring(std::get<double>(value));
}

/// A wide text in the fewest bytes: its low bytes when nothing is lost.
void PutText(std::wstring_view text, CTraceArgumentWriter& writer) {
    const auto isByte = [](wchar_t character) { return static_cast<std::uint32_t>(character) < 0x100; };
    if (std::all_of(text.begin(), text.end(), isByte)) return writer.PutLowBytes(text);
    writer.PutUtf16(ToUtf16(text));
}

void PutString(const TraceArgument& argument, Size size, CTraceArgumentWriter& writer) {
    const auto* const wide = std::get_if<std::wstring_view>(&argument.Get());
    const auto* const narrow = std::get_if<std::string_view>(&argument.Get());
    switch (size) {
        case Size::Plain: return wide ? PutText(*wide, writer) : PutText(TextOf(argument), writer);
        case Size::Short: return writer.PutBytes(narrow ? std::string(*narrow) : ToUtf8(TextOf(argument)));
        case Size::Long: return writer.PutUtf16(ToUtf16(TextOf(argument)));
        case Size::Long64:
        case Size::Unknown: return writer.PutNothing();
    }
}

void PutArgument(const TraceArgument& argument, const CTraceInsert& insert, CTraceArgumentWriter& writer) {
    switch (insert.kind) {
        case Kind::Signed:
            return writer.PutSigned(Cut<std::int64_t, std::int32_t, std::int16_t>(argument, insert.size));
        case Kind::Unsigned:
            return writer.PutUnsigned(
                Cut<std::uint64_t, std::uint32_t, std::uint16_t>(argument, insert.size));
        case Kind::Floating: return writer.PutFloating(NumberOf<double>(argument).value_or(0));
        case Kind::String: return PutString(argument, insert.size, writer);
    }
}

/// A number as printf writes it with the insert's flag, width and precision.
template <class T>
std::wstring FormatNumber(T number, const CTraceInsert& insert, const char* size) {
    std::string format = "%";
    if (insert.flag != '\0') format += insert.flag;
    if (insert.width) format += std::to_string(*insert.width);
    if (insert.precision) format += "." + std::to_string(*insert.precision);
    format.append(size).push_back(insert.conversion);
    std::array<char, 512> buffer{};  // 308 digits and the widest precision fit
    std::snprintf(buffer.data(), buffer.size(), format.c_str(), number);
    return FromUtf8(buffer.data());
}

std::wstring FormatString(std::wstring text, const CTraceInsert& insert) {
    if (insert.precision) text = text.substr(0, static_cast<std::size_t>(*insert.precision));
    const auto width = static_cast<std::size_t>(insert.width.value_or(0));
    if (text.size() >= width) return text;
    return insert.flag == '-' ? text.append(width - text.size(), L' ')
                              : text.insert(0, width - text.size(), L' ');
}

std::wstring FromBytes(const std::string& bytes, Size size) {
    if (size == Size::Short) return FromUtf8(bytes);
    std::wstring text(bytes.size(), L'\0');
    std::transform(bytes.begin(), bytes.end(), text.begin(),
                   [](char byte) { return static_cast<wchar_t>(static_cast<unsigned char>(byte)); });
    return text;
}

std::wstring FormatText(const TraceValue& value, const CTraceInsert& insert) {
    if (const auto* text = std::get_if<std::string>(&value))
        return FormatString(FromBytes(*text, insert.size), insert);
    if (const auto* text = std::get_if<std::u16string>(&value)) return FormatString(FromUtf16(*text), insert);
    return {};
}

/// A value whose kind is another one than its insert's, as one of a file made with other texts may be, is
/// written in the plainest form of its own kind.
std::wstring FormatValue(const TraceValue& value, const CTraceInsert& insert) {
    if (const auto* number = std::get_if<std::int64_t>(&value)) {
        if (insert.kind == Kind::Signed || insert.kind == Kind::Unsigned)
            return FormatNumber(static_cast<long long>(*number), insert, "ll");
        if (insert.kind == Kind::String) return std::to_wstring(*number);
        return FormatNumber(static_cast<double>(*number), insert, "");
    }
    if (const auto* number = std::get_if<std::uint64_t>(&value)) {
        if (insert.kind == Kind::Signed || insert.kind == Kind::Unsigned)
            return FormatNumber(static_cast<unsigned long long>(*number), insert, "ll");
        if (insert.kind == Kind::String) return std::to_wstring(*number);
        return FormatNumber(static_cast<double>(*number), insert, "");
    }
    if (const auto* number = std::get_if<double>(&value))
        return insert.kind == Kind::Floating ? FormatNumber(*number, insert, "") : std::to_wstring(*number);
    return FormatText(value, insert);
}

}  // namespace

CTraceText::CTraceText(std::wstring text) {
    while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r')) text.pop_back();
    std::wstring plain;
    std::map<std::size_t, std::optional<CTraceInsert>> inserts;
    for (std::wstring_view rest = text; !rest.empty();) {
        const wchar_t character = rest.front();
        rest.remove_prefix(1);
        if (character != L'%') {
            plain += character;
        } else if (rest.starts_with(L'%')) {
            plain += character;
            rest.remove_prefix(1);
        } else if (const auto parsed = TakeInsert(rest)) {
            m_parts.push_back({std::exchange(plain, {}), parsed->insert ? parsed->number : 0,
                               parsed->insert.value_or(CTraceInsert())});
            inserts.emplace(parsed->number, parsed->insert);
        } else {
            plain += character;
        }
    }
    m_parts.push_back({std::move(plain), 0, {}});
    for (const auto& [number, insert] : inserts) {
        if (number != m_inserts.size() + 1 || !insert) break;
        m_inserts.push_back(*insert);
    }
}

void CTraceText::Encode(std::initializer_list<TraceArgument> arguments, CTraceArgumentWriter& writer) const {
    auto insert = m_inserts.begin();
    for (const TraceArgument& argument : arguments) {
        if (insert == m_inserts.end()) return;
        PutArgument(argument, *insert++, writer);
    }
}

std::wstring CTraceText::Render(const std::vector<TraceValue>& values) const {
    std::wstring text;
    for (const CPart& part : m_parts) {
        text += part.text;
        if (part.insert != 0 && part.insert <= values.size())
            text += FormatValue(values[part.insert - 1], part.format);
    }
    return text;
}

CTraceTexts::CTraceTexts(const CMessageModule& module) {
    for (const std::uint32_t id : module.Identifiers()) m_texts.emplace(id, module.Find(id).value());
}

const CTraceText& CTraceTexts::Find(std::uint32_t id) const noexcept {
    const auto found = m_texts.find(id);
    return found == m_texts.end() ? m_none : found->second;
}

std::wstring CTraceTexts::Line(std::uint32_t id, std::span<const std::uint8_t> arguments) const {
    const auto values = DecodeArguments(arguments);
    if (!values) return L"0x" + ToHex(id, 8) + L" (arguments unreadable)";
    std::wstring line = Find(id).Render(*values);
    if (!line.empty()) return line;
    line = L"0x" + ToHex(id, 8);
    for (const TraceValue& value : *values) line += L' ' + FormatValue(value, CTraceInsert());
    return line;
}

}  // namespace quorbel
