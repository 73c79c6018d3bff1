#include "components/oledb/RowValue.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

#include "components/oledb/ByteStream.h"
#include "components/oledb/ValueText.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

using Type = CSqlColumn::Type;

template <class T>
void Store(std::byte* at, T value) noexcept {
    std::memcpy(at, &value, sizeof value);
}

/// How a value of its own type is called.
DBTYPE OwnType(const CSqlValue& value) noexcept {
    struct CVisitor {
        DBTYPE operator()(std::monostate) const noexcept { return DBTYPE_VARIANT; }
        DBTYPE operator()(bool) const noexcept { return DBTYPE_BOOL; }
        DBTYPE operator()(std::int64_t) const noexcept { return DBTYPE_I8; }
        DBTYPE operator()(double) const noexcept { return DBTYPE_R8; }
        DBTYPE operator()(CSqlDecimal) const noexcept { return DBTYPE_NUMERIC; }
        DBTYPE operator()(std::string_view) const noexcept { return DBTYPE_WSTR; }
        DBTYPE operator()(CSqlBytes) const noexcept { return DBTYPE_WSTR; }
    };
    return std::visit(CVisitor(), value);
}

/// What a status is accompanied by.
struct CWritten {
    DBSTATUS status;
    std::size_t length = 0;
};

constexpr CWritten kCannotConvert{DBSTATUS_E_CANTCONVERTVALUE};
constexpr CWritten kCannotCreate{DBSTATUS_E_CANTCREATE};

bool IsAscii(std::string_view text) noexcept {
    const char* at = text.data();
    std::size_t left = text.size();
    for (; left >= sizeof(std::uint64_t); at += sizeof(std::uint64_t), left -= sizeof(std::uint64_t)) {
        std::uint64_t part = 0;
        std::memcpy(&part, at, sizeof part);
        if (part & 0x8080808080808080) return false;
    }
    return std::all_of(at, at + left, [](char character) { return (character & 0x80) == 0; });
}

void Widen(std::string_view ascii, wchar_t* to) noexcept {
    for (const char character : ascii) *to++ = static_cast<wchar_t>(character);
}

CWritten CopyFixed(std::wstring_view text, const DBBINDING& binding, std::byte* at) noexcept {
    const std::size_t count = std::min(text.size(), binding.cbMaxLen - 1);
    auto* const characters = reinterpret_cast<wchar_t*>(at);
    std::copy_n(text.data(), count, characters);
    characters[count] = L'\0';
    return {count < text.size() ? DBSTATUS_S_TRUNCATED : DBSTATUS_S_OK, text.size()};
}

/// Writes UTF-8 as characters, into the buffer or into memory of their own.
CWritten WriteCharacters(std::string_view text, const DBBINDING& binding, std::byte* at) {
    const bool isReference = (binding.wType & DBTYPE_BYREF) != 0;
    const bool isAscii = IsAscii(text);
    if (!isReference && binding.cbMaxLen == 0) return {DBSTATUS_S_TRUNCATED, text.size()};
    if (!isReference && isAscii && text.size() < binding.cbMaxLen) {
        auto* const characters = reinterpret_cast<wchar_t*>(at);
        Widen(text, characters);
        characters[text.size()] = L'\0';
        return {DBSTATUS_S_OK, text.size()};
    }
    const std::wstring wide = isReference && isAscii ? std::wstring() : FromUtf8(text);
    if (!isReference) return CopyFixed(wide, binding, at);
    const std::size_t length = isAscii ? text.size() : wide.size();
    auto* const memory = static_cast<wchar_t*>(CoTaskMemAlloc((length + 1) * sizeof(wchar_t)));
    if (!memory) return kCannotCreate;
    if (isAscii) {
        Widen(text, memory);
    } else {
        std::copy_n(wide.data(), length, memory);
    }
    memory[length] = L'\0';
    Store(at, memory);
    return {DBSTATUS_S_OK, length};
}

CWritten WriteText(const CSqlColumn& column, const CSqlValue& value, const DBBINDING& binding,
                   std::byte* at) {
    if (const auto* const text = std::get_if<std::string_view>(&value)) {
        return WriteCharacters(*text, binding, at);
    }
    if (const auto* const bytes = std::get_if<CSqlBytes>(&value)) {
        return WriteCharacters(HexText(bytes->bytes), binding, at);
    }
    const bool isReference = (binding.wType & DBTYPE_BYREF) != 0;
    const std::size_t width = isReference ? kUnknownSize : std::max<std::size_t>(binding.cbMaxLen, 1) - 1;
    CNumberText buffer;
    const std::string_view text = NumberText(column.type, value, width, buffer);
    const bool mayBeCut = std::holds_alternative<bool>(value) || column.type == Type::Text;
    if (text.size() > width && !mayBeCut) return {DBSTATUS_E_DATAOVERFLOW, text.size()};
    return WriteCharacters(text, binding, at);
}

std::optional<double> AsReal(const CSqlValue& value) noexcept {
    if (const auto* const real = std::get_if<double>(&value)) return *real;
    if (const auto* const whole = std::get_if<std::int64_t>(&value)) return static_cast<double>(*whole);
    if (const auto* const truth = std::get_if<bool>(&value)) return *truth ? 1 : 0;
    const auto* const decimal = std::get_if<CSqlDecimal>(&value);
    if (!decimal) return std::nullopt;
    double number = 0;
    const char* const end = decimal->digits.data() + decimal->digits.size();
    const auto [stop, error] = std::from_chars(decimal->digits.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

template <class Number>
CWritten WriteWhole(const CSqlValue& value, std::byte* at) noexcept {
    const CSqlValue whole = FitToColumn(Type::I8, value);
    const auto* const number = std::get_if<std::int64_t>(&whole);
    if (!number) return kCannotConvert;
    if (*number < std::numeric_limits<Number>::min() || *number > std::numeric_limits<Number>::max()) {
        return {DBSTATUS_E_DATAOVERFLOW};
    }
    Store(at, static_cast<Number>(*number));
    return {DBSTATUS_S_OK, sizeof(Number)};
}

template <class Number>
CWritten WriteReal(const CSqlValue& value, std::byte* at) noexcept {
    const auto number = AsReal(value);
    if (!number) return kCannotConvert;
    Store(at, static_cast<Number>(*number));
    return {DBSTATUS_S_OK, sizeof(Number)};
}

CWritten WriteTruth(const CSqlValue& value, std::byte* at) noexcept {
    const auto number = AsReal(value);
    if (!number) return kCannotConvert;
    Store(at, *number != 0 ? VARIANT_TRUE : VARIANT_FALSE);
    return {DBSTATUS_S_OK, sizeof(VARIANT_BOOL)};
}

CVariant WholeVariant(Type type, std::int64_t number) noexcept {
    if (type == Type::I2) return CVariant::FromI2(static_cast<std::int16_t>(number));
    if (type == Type::I4) return CVariant::FromI4(static_cast<std::int32_t>(number));
    return CVariant::FromI8(number);
}

CVariant VariantOf(Type type, const CSqlValue& value) {
    struct CVisitor {
        Type type;
        CVariant operator()(std::monostate) const { return CVariant::Null(); }
        CVariant operator()(bool truth) const { return CVariant::FromBool(truth); }
        CVariant operator()(std::int64_t number) const { return WholeVariant(type, number); }
        CVariant operator()(double number) const {
            return type == Type::R4 ? CVariant::FromR4(static_cast<float>(number)) : CVariant::FromR8(number);
        }
        CVariant operator()(CSqlDecimal number) const { return CVariant(FromUtf8(number.digits)); }
        CVariant operator()(std::string_view text) const { return CVariant(FromUtf8(text)); }
        CVariant operator()(CSqlBytes bytes) const {
            return CVariant::FromUnknown(CComPtr<IUnknown>(MakeByteStream(bytes.bytes).Get()));
        }
    };
    return std::visit(CVisitor{type}, value);
}

CWritten WriteVariant(Type type, const CSqlValue& value, std::byte* at) {
    VARIANT variant;
    VariantOf(type, value).Detach(variant);
    Store(at, variant);
    return {DBSTATUS_S_OK, sizeof(VARIANT)};
}

CWritten WriteStream(const CSqlValue& value, std::byte* at) {
    const auto* const bytes = std::get_if<CSqlBytes>(&value);
    const auto* const text = std::get_if<std::string_view>(&value);
    if (!bytes && !text) return kCannotConvert;
    const std::string_view content = bytes ? bytes->bytes : *text;
    Store(at, static_cast<IUnknown*>(MakeByteStream(content).Detach()));
    return {DBSTATUS_S_OK, content.size()};
}

/// A null pointer or an empty variant where the consumer might free something.
void WriteNothing(const DBBINDING& binding, std::byte* at) noexcept {
    if (binding.wType == DBTYPE_VARIANT) {
        Store(at, VARIANT{VT_NULL, {}});
    } else if ((binding.wType & DBTYPE_BYREF) != 0 || binding.wType == DBTYPE_IUNKNOWN) {
        Store<void*>(at, nullptr);
    } else if (binding.wType == DBTYPE_WSTR && binding.cbMaxLen != 0) {
        Store(at, L'\0');
    }
}

CWritten WriteAs(const CSqlColumn& column, const CSqlValue& value, const DBBINDING& binding, std::byte* at) {
    switch (binding.wType) {
        case DBTYPE_WSTR:
        case DBTYPE_WSTR | DBTYPE_BYREF: return WriteText(column, value, binding, at);
        case DBTYPE_VARIANT: return WriteVariant(column.type, value, at);
        case DBTYPE_IUNKNOWN: return WriteStream(value, at);
        case DBTYPE_I2: return WriteWhole<std::int16_t>(value, at);
        case DBTYPE_I4: return WriteWhole<std::int32_t>(value, at);
        case DBTYPE_I8: return WriteWhole<std::int64_t>(value, at);
        case DBTYPE_R4: return WriteReal<float>(value, at);
        case DBTYPE_R8: return WriteReal<double>(value, at);
        case DBTYPE_BOOL: return WriteTruth(value, at);
        default: return kCannotConvert;
    }
}

/// The status of a value that nobody wants.
CWritten Judge(const CSqlColumn& column, const CSqlValue& value) noexcept {
    if (std::holds_alternative<std::monostate>(value)) return {DBSTATUS_S_ISNULL};
    const bool fits = !std::holds_alternative<std::monostate>(FitToColumn(column.type, value));
    return fits ? CWritten{DBSTATUS_S_OK} : kCannotConvert;
}

CWritten Write(const CSqlColumn& column, const CSqlValue& value, const DBBINDING& binding, std::byte* at) {
    if (std::holds_alternative<std::monostate>(value)) return {DBSTATUS_S_ISNULL};
    const CSqlValue fitting = FitToColumn(column.type, value);
    if (std::holds_alternative<std::monostate>(fitting)) return kCannotConvert;
    if (binding.pBindExt && binding.pBindExt->pExtension) *binding.pBindExt->pExtension = OwnType(fitting);
    try {
        return WriteAs(column, fitting, binding, at);
    } catch (const std::bad_alloc&) {
        return kCannotCreate;
    }
}

}  // namespace

DBSTATUS WriteRowValue(const CSqlColumn& column, const CSqlValue& value, const DBBINDING& binding,
                       std::byte* row) {
    const bool isWanted = (binding.dwPart & DBPART_VALUE) != 0;
    std::byte* const at = row + binding.obValue;
    const CWritten written = isWanted ? Write(column, value, binding, at) : Judge(column, value);
    const bool isWritten = written.status == DBSTATUS_S_OK || written.status == DBSTATUS_S_TRUNCATED;
    if (isWanted && !isWritten) WriteNothing(binding, at);
    if (binding.dwPart & DBPART_LENGTH) Store(row + binding.obLength, written.length);
    if (binding.dwPart & DBPART_STATUS) Store(row + binding.obStatus, written.status);
    return written.status;
}

}  // namespace quorbel
