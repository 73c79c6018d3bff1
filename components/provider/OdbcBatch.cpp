#include "components/provider/OdbcBatch.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <span>
#include <sqlext.h>

#include "components/provider/OdbcError.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

HRESULT ReportTooLarge() {
    SetErrorInfo(L"The rows of a statement that writes need more memory than they may.");
    return DB_E_ERRORSINCOMMAND;
}

HRESULT ReportUnknownLength() {
    SetErrorInfo(L"The driver does not say how long a value is.");
    return E_FAIL;
}

void ToLowerCase(std::span<char> text) noexcept {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
}

template <class T>
bool Parse(std::string_view text, T& value) noexcept {
    const auto end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    return parsed.ec == std::errc() && parsed.ptr == end;
}

bool IsDecimal(std::string_view text) noexcept {
    return text.find_first_not_of("0123456789+-.eE") == std::string_view::npos;
}

}  // namespace

HRESULT COdbcBatch::Load(SQLHANDLE statement, const COdbcColumns& columns, std::size_t limit) {
    m_columnCount = columns.shown.size();
    m_cells.clear();
    m_bytes.clear();
    m_longestRow = 0;
    m_next = 0;
    while (true) {
        const std::size_t before = ByteCount();
        const SQLRETURN fetched = SQLFetch(statement);
        if (fetched == SQL_NO_DATA) return S_OK;
        if (!SQL_SUCCEEDED(fetched)) return ReportOdbcError(TakeOdbcError(SQL_HANDLE_STMT, statement));
        for (std::size_t index = 0; index < m_columnCount; ++index) {
            const HRESULT loaded =
                LoadValue(statement, static_cast<SQLUSMALLINT>(index + 1), columns.sources[index], limit);
            if (!Succeeded(loaded)) return loaded;
        }
        m_longestRow = std::max(m_longestRow, ByteCount() - before);
    }
}

HRESULT COdbcBatch::LoadValue(SQLHANDLE statement, SQLUSMALLINT number, OdbcSource source,
                              std::size_t limit) {
    const bool isBytes = source == OdbcSource::Bytes;
    const SQLSMALLINT type = isBytes ? SQL_C_BINARY : SQL_C_CHAR;
    const std::size_t terminator = isBytes ? 0 : 1;
    CCell cell{m_bytes.size(), 0, false};
    char first[2048];
    SQLLEN length = 0;
    SQLRETURN result = SQLGetData(statement, number, type, first, sizeof(first), &length);
    cell.isNull = SQL_SUCCEEDED(result) && length == SQL_NULL_DATA;
    if (SQL_SUCCEEDED(result) && length > 0) {
        const auto size = static_cast<std::size_t>(length);
        if (ByteCount() + size > limit) return ReportTooLarge();
        const std::size_t had = std::min(size, sizeof(first) - terminator);
        m_bytes.append(first, had);
        cell.length = size;
        if (had < size) {
            // The driver ends a text with a zero, which takes one byte more.
            m_bytes.resize(cell.begin + size + terminator);
            result = SQLGetData(statement, number, type, m_bytes.data() + cell.begin + had,
                                static_cast<SQLLEN>(size - had + terminator), &length);
            m_bytes.resize(cell.begin + size);
        }
    }
    if (!SQL_SUCCEEDED(result)) return ReportOdbcError(TakeOdbcError(SQL_HANDLE_STMT, statement));
    if (length == SQL_NO_TOTAL) return ReportUnknownLength();
    if (source == OdbcSource::Uuid) ToLowerCase(std::span(m_bytes).subspan(cell.begin));
    m_cells.push_back(cell);
    return ByteCount() > limit ? ReportTooLarge() : S_OK;
}

bool COdbcBatch::Next() noexcept {
    if (m_next >= RowCount()) return false;
    ++m_next;
    return true;
}

std::optional<std::string_view> COdbcBatch::Text(std::size_t column) const noexcept {
    const CCell& cell = m_cells[(m_next - 1) * m_columnCount + column];
    if (cell.isNull) return std::nullopt;
    return std::string_view(m_bytes.data() + cell.begin, cell.length);
}

CSqlValue ParseOdbcValue(OdbcSource source, std::string_view text) noexcept {
    switch (source) {
        case OdbcSource::Integer: {
            std::int64_t value = 0;
            if (Parse(text, value)) return value;
            return text;
        }
        case OdbcSource::Real: {
            double value = 0;
            // What is no number stays a text, which no number's column takes.
            if (Parse(text, value) && !std::isnan(value)) return value;
            return text;
        }
        case OdbcSource::Decimal:
            if (IsDecimal(text)) return CSqlDecimal{text};
            return text;
        case OdbcSource::Truth: return text == "1" || text == "t" || text == "true";
        case OdbcSource::Bytes: return CSqlBytes{text};
        case OdbcSource::Text:
        case OdbcSource::Uuid:
        case OdbcSource::Time: return text;
    }
    return text;
}

}  // namespace quorbel
