#include "components/provider/OdbcColumns.h"

#include <algorithm>
#include <sqlext.h>
#include <sqlucode.h>
#include <string_view>

#include "components/provider/OdbcError.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

/// As many digits as the largest of the whole numbers have; a number with more is a value with a type of its
/// own.
constexpr SQLULEN kMostDigits = 20;

std::wstring FromOdbc(const std::vector<SQLWCHAR>& text, std::size_t length) {
    return FromUtf16({reinterpret_cast<const char16_t*>(text.data()), std::min(length, text.size() - 1)});
}

/// What the driver says of one column.
struct CDescription {
    std::wstring name;
    std::wstring typeName;
    SQLSMALLINT type = 0;
    SQLULEN size = 0;
    SQLSMALLINT digits = 0;
};

struct CKind {
    CSqlColumn::Type type;
    OdbcSource source;
};

CKind KindOf(const CDescription& column) {
    using Type = CSqlColumn::Type;
    if (column.typeName == L"money") return {Type::Text, OdbcSource::Text};
    if (column.typeName == L"oid") return {Type::I8, OdbcSource::Integer};
    switch (column.type) {
        case SQL_TINYINT:
        case SQL_SMALLINT: return {Type::I2, OdbcSource::Integer};
        case SQL_INTEGER: return {Type::I4, OdbcSource::Integer};
        case SQL_BIGINT: return {Type::I8, OdbcSource::Integer};
        case SQL_REAL: return {Type::R4, OdbcSource::Real};
        case SQL_FLOAT:
        case SQL_DOUBLE: return {Type::R8, OdbcSource::Real};
        case SQL_DECIMAL:
        case SQL_NUMERIC:
            return {column.size > kMostDigits ? Type::Variant : Type::Numeric, OdbcSource::Decimal};
        case SQL_BIT: return {Type::Bool, OdbcSource::Truth};
        case SQL_BINARY:
        case SQL_VARBINARY:
        case SQL_LONGVARBINARY: return {Type::Variant, OdbcSource::Bytes};
        case SQL_GUID: return {Type::Text, OdbcSource::Uuid};
        case SQL_TYPE_DATE:
        case SQL_TYPE_TIMESTAMP: return {Type::Text, OdbcSource::Time};
    }
    return {Type::Text, OdbcSource::Text};
}

bool Describe(SQLHANDLE statement, SQLUSMALLINT number, CDescription& column) {
    std::vector<SQLWCHAR> text(512);
    const auto space = static_cast<SQLSMALLINT>(text.size());
    SQLSMALLINT length = 0;
    SQLSMALLINT nullable = 0;
    if (!SQL_SUCCEEDED(SQLDescribeColW(statement, number, text.data(), space, &length, &column.type,
                                       &column.size, &column.digits, &nullable))) {
        return false;
    }
    column.name = FromOdbc(text, length);
    const auto bytes = static_cast<SQLSMALLINT>(text.size() * sizeof(SQLWCHAR));
    if (SQL_SUCCEEDED(
            SQLColAttributeW(statement, number, SQL_DESC_TYPE_NAME, text.data(), bytes, &length, nullptr))) {
        column.typeName = FromOdbc(text, length / sizeof(SQLWCHAR));
    }
    return true;
}

}  // namespace

bool COdbcColumns::HaveTimes() const noexcept {
    return std::find(sources.begin(), sources.end(), OdbcSource::Time) != sources.end();
}

void COdbcColumns::TakeTimesAsText() noexcept {
    std::replace(sources.begin(), sources.end(), OdbcSource::Time, OdbcSource::Text);
}

HRESULT DescribeOdbcColumns(SQLHANDLE statement, COdbcColumns& columns) {
    columns = {};
    SQLSMALLINT count = 0;
    if (!SQL_SUCCEEDED(SQLNumResultCols(statement, &count))) {
        return ReportOdbcError(TakeOdbcError(SQL_HANDLE_STMT, statement));
    }
    for (SQLSMALLINT number = 1; number <= count; ++number) {
        CDescription column;
        if (!Describe(statement, number, column)) {
            return ReportOdbcError(TakeOdbcError(SQL_HANDLE_STMT, statement));
        }
        const CKind kind = KindOf(column);
        CSqlColumn& shown = columns.shown.emplace_back();
        shown.name = std::move(column.name);
        shown.type = kind.type;
        if (kind.type == CSqlColumn::Type::Numeric) {
            shown.precision = static_cast<std::uint8_t>(column.size);
            shown.scale = static_cast<std::uint8_t>(column.digits);
        }
        columns.sources.push_back(kind.source);
    }
    return S_OK;
}

}  // namespace quorbel
