#include "components/provider/SqliteValues.h"

#include <algorithm>
#include <charconv>

#include "components/oledb/ByteStream.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

using Type = CSqlColumn::Type;

/// Digits of which a number is still reported as one.
constexpr unsigned kMostNumericDigits = 20;

constexpr std::pair<std::string_view, Type> kTypes[] = {
    {"SMALLINT", Type::I2},       {"INT2", Type::I2},
    {"TINYINT", Type::I2},        {"INT", Type::I4},
    {"INT4", Type::I4},           {"MEDIUMINT", Type::I4},
    {"INTEGER", Type::I8},        {"BIGINT", Type::I8},
    {"INT8", Type::I8},           {"UNSIGNED BIG INT", Type::I8},
    {"FLOAT4", Type::R4},         {"REAL", Type::R8},
    {"DOUBLE", Type::R8},         {"DOUBLE PRECISION", Type::R8},
    {"FLOAT", Type::R8},          {"FLOAT8", Type::R8},
    {"NUMERIC", Type::Numeric},   {"DECIMAL", Type::Numeric},
    {"BOOL", Type::Bool},         {"BOOLEAN", Type::Bool},
    {"", Type::Variant},          {"BLOB", Type::Variant},
    {"BYTEA", Type::Variant},     {"BINARY", Type::Variant},
    {"VARBINARY", Type::Variant}, {"ANY", Type::Variant},
};

char UpperCase(char character) noexcept {
    return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
}

/// The words before the bracket, in capitals, one blank between them.
std::string TypeName(std::string_view declaration) {
    std::string name;
    for (const char character : declaration.substr(0, declaration.find('('))) {
        if (character != ' ' || (!name.empty() && name.back() != ' ')) name += UpperCase(character);
    }
    while (!name.empty() && name.back() == ' ') name.pop_back();
    return name;
}

/// Reads the next number of "(p, s)".
std::optional<unsigned> TakeNumber(std::string_view& text) noexcept {
    const auto digit = text.find_first_of("0123456789");
    if (digit == text.npos) return std::nullopt;
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data() + digit, text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

void SetPrecision(std::string_view declaration, CSqlColumn& column) {
    const auto bracket = declaration.find('(');
    if (bracket == declaration.npos) return;
    declaration.remove_prefix(bracket);
    const auto precision = TakeNumber(declaration);
    if (!precision || *precision > kMostNumericDigits) {
        column.type = Type::Variant;
        return;
    }
    column.precision = static_cast<std::uint8_t>(*precision);
    column.scale = static_cast<std::uint8_t>(std::min(TakeNumber(declaration).value_or(0), *precision));
}

/// Blobs without bytes have no address, which SQLite would take for NULL.
const char* Address(std::string_view bytes) noexcept {
    return bytes.empty() ? "" : bytes.data();
}

std::string_view TextBytes(sqlite3_value* value) {
    const auto* const text = reinterpret_cast<const char*>(::sqlite3_value_text(value));
    return {text ? text : "", text ? static_cast<std::size_t>(::sqlite3_value_bytes(value)) : 0};
}

}  // namespace

std::vector<CSqlColumn> DescribeColumns(sqlite3_stmt* statement) {
    std::vector<CSqlColumn> columns;
    const int count = ::sqlite3_column_count(statement);
    for (int index = 0; index != count; ++index) {
        const char* const declaration = ::sqlite3_column_decltype(statement, index);
        const char* const name = ::sqlite3_column_name(statement, index);
        columns.push_back(ColumnOfDeclaration(declaration ? declaration : ""));
        columns.back().name = FromUtf8(name ? name : "");
    }
    return columns;
}

CSqlColumn ColumnOfDeclaration(std::string_view declaration) {
    const std::string name = TypeName(declaration);
    const auto* const found = std::ranges::find(kTypes, name, &std::pair<std::string_view, Type>::first);
    CSqlColumn column;
    column.type = found == std::end(kTypes) ? Type::Text : found->second;
    if (column.type == Type::Numeric) SetPrecision(declaration, column);
    return column;
}

CSqlValue ColumnValue(sqlite3_stmt* statement, int column) {
    switch (::sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER: return std::int64_t{::sqlite3_column_int64(statement, column)};
        case SQLITE_FLOAT: return ::sqlite3_column_double(statement, column);
        case SQLITE_TEXT: {
            const auto* const text = reinterpret_cast<const char*>(::sqlite3_column_text(statement, column));
            const auto size = static_cast<std::size_t>(::sqlite3_column_bytes(statement, column));
            return std::string_view(text ? text : "", text ? size : 0);
        }
        case SQLITE_BLOB: {
            const auto* const bytes = static_cast<const char*>(::sqlite3_column_blob(statement, column));
            const auto size = static_cast<std::size_t>(::sqlite3_column_bytes(statement, column));
            return CSqlBytes{{bytes ? bytes : "", bytes ? size : 0}};
        }
        default: return std::monostate();
    }
}

int BindValue(sqlite3_stmt* statement, int parameter, const VARIANT& value) {
    switch (value.vt) {
        case VT_EMPTY:
        case VT_NULL: return ::sqlite3_bind_null(statement, parameter);
        case VT_I2: return ::sqlite3_bind_int64(statement, parameter, value.iVal);
        case VT_I4: return ::sqlite3_bind_int64(statement, parameter, value.lVal);
        case VT_I8: return ::sqlite3_bind_int64(statement, parameter, value.llVal);
        case VT_BOOL: return ::sqlite3_bind_int64(statement, parameter, value.boolVal != VARIANT_FALSE);
        case VT_R4: return ::sqlite3_bind_double(statement, parameter, value.fltVal);
        case VT_R8: return ::sqlite3_bind_double(statement, parameter, value.dblVal);
        case VT_BSTR: {
            const std::string text = ToUtf8(ToView(value.bstrVal));
            return ::sqlite3_bind_text64(statement, parameter, text.data(), text.size(), SQLITE_TRANSIENT,
                                         SQLITE_UTF8);
        }
        case VT_UNKNOWN: {
            std::string bytes;
            if (!Succeeded(ReadAll(value.punkVal, kMostStreamBytes, bytes))) return SQLITE_MISMATCH;
            return ::sqlite3_bind_blob64(statement, parameter, Address(bytes), bytes.size(),
                                         SQLITE_TRANSIENT);
        }
        default: return SQLITE_MISMATCH;
    }
}

CVariant ToVariant(sqlite3_value* value) {
    switch (::sqlite3_value_type(value)) {
        case SQLITE_INTEGER: return CVariant::FromI8(::sqlite3_value_int64(value));
        case SQLITE_FLOAT: return CVariant::FromR8(::sqlite3_value_double(value));
        case SQLITE_TEXT: return CVariant(FromUtf8(TextBytes(value)));
        case SQLITE_BLOB: {
            const auto* const bytes = static_cast<const char*>(::sqlite3_value_blob(value));
            const auto size = static_cast<std::size_t>(::sqlite3_value_bytes(value));
            const auto stream = MakeByteStream({bytes ? bytes : "", bytes ? size : 0});
            return CVariant::FromUnknown(CComPtr<IUnknown>(stream.Get()));
        }
        default: return CVariant::Null();
    }
}

std::optional<std::wstring> ToText(sqlite3_value* value) {
    if (::sqlite3_value_type(value) == SQLITE_NULL) return std::nullopt;
    return FromUtf8(TextBytes(value));
}

bool ReturnValue(sqlite3_context* context, const VARIANT& value) {
    switch (value.vt) {
        case VT_EMPTY:
        case VT_NULL: ::sqlite3_result_null(context); return true;
        case VT_I2: ::sqlite3_result_int64(context, value.iVal); return true;
        case VT_I4: ::sqlite3_result_int64(context, value.lVal); return true;
        case VT_I8: ::sqlite3_result_int64(context, value.llVal); return true;
        case VT_BOOL: ::sqlite3_result_int64(context, value.boolVal != VARIANT_FALSE); return true;
        case VT_R4: ::sqlite3_result_double(context, value.fltVal); return true;
        case VT_R8: ::sqlite3_result_double(context, value.dblVal); return true;
        case VT_BSTR: {
            const std::string text = ToUtf8(ToView(value.bstrVal));
            ::sqlite3_result_text64(context, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
            return true;
        }
        case VT_UNKNOWN: {
            std::string bytes;
            if (!Succeeded(ReadAll(value.punkVal, kMostStreamBytes, bytes))) return false;
            ::sqlite3_result_blob64(context, Address(bytes), bytes.size(), SQLITE_TRANSIENT);
            return true;
        }
        default: return false;
    }
}

}  // namespace quorbel
