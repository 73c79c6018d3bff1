#include "components/search/query/SearchRows.h"

#include <algorithm>
#include <cmath>

#include "components/search/index/Excerpt.h"
#include "platform/Text.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

using Source = CSearchProperty::Source;

/// The text, like that of an argument, must live until the statement is reset.
int BindText(sqlite3_stmt* statement, int number, const std::string& text) {
    return ::sqlite3_bind_text64(statement, number, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

int BindArgument(sqlite3_stmt* statement, int number, const CSearchPlan::Argument& argument) {
    if (const auto* const text = std::get_if<std::string>(&argument)) {
        return BindText(statement, number, *text);
    }
    return ::sqlite3_bind_int64(statement, number, std::get<std::int64_t>(argument));
}

void Reset(sqlite3_stmt* statement) noexcept {
    if (!statement) return;
    // Repeats the result of the last step, which has been reported.
    ::sqlite3_reset(statement);
    ::sqlite3_clear_bindings(statement);
}

std::string_view TextAt(sqlite3_stmt* statement, int column) noexcept {
    const auto* const bytes = reinterpret_cast<const char*>(::sqlite3_column_text(statement, column));
    const int size = ::sqlite3_column_bytes(statement, column);
    return bytes ? std::string_view(bytes, static_cast<std::size_t>(size)) : std::string_view();
}

}  // namespace

std::int64_t RankOf(double relevance) noexcept {
    // Half of the scale is reached by a rare word that a long document has a few times.
    constexpr double kMiddle = 10;
    if (!(relevance > 0)) return 0;
    return std::max<std::int64_t>(1, std::lround(1000 * relevance / (relevance + kMiddle)));
}

std::string SummaryOf(std::string_view excerpt) {
    const std::string begin = ToUtf8({&kHitBegin, 1});
    const std::string end = ToUtf8({&kHitEnd, 1});
    std::string summary;
    for (std::size_t at = 0; at < excerpt.size();) {
        const std::string_view rest = excerpt.substr(at);
        if (rest.starts_with(begin) || rest.starts_with(end)) {
            at += begin.size();
            continue;
        }
        const char character = rest.front();
        if (character == kMarkBegin) {
            summary += begin;
        } else if (character == kMarkEnd) {
            summary += end;
        } else {
            summary += character;
        }
        ++at;
    }
    return summary;
}

HRESULT CSearchRows::Open(CSearchConnection& connection, CSearchPlan plan,
                          std::shared_ptr<CSearchRows>& rows) {
    std::shared_ptr<CSearchRows> opened(new CSearchRows(connection, std::move(plan)));
    const HRESULT prepared = opened->Prepare();
    if (!Succeeded(prepared)) return prepared;
    opened->m_first = opened->Advance();
    if (!Succeeded(opened->m_first)) return opened->m_first;
    rows = std::move(opened);
    return S_OK;
}

CSearchRows::~CSearchRows() {
    Reset(m_details.get());
    Reset(m_search.get());
}

HRESULT CSearchRows::Prepare() {
    HRESULT result = m_connection.Prepare(m_plan.search, m_search);
    if (Succeeded(result)) result = m_connection.Prepare(m_plan.details, m_details);
    if (!Succeeded(result)) return result;
    int number = 0;
    for (const CSearchPlan::Argument& argument : m_plan.arguments) {
        const int bound = BindArgument(m_search.get(), ++number, argument);
        if (bound != SQLITE_OK) return m_connection.Failure(bound);
    }
    return S_OK;
}

HRESULT CSearchRows::Next() {
    if (!m_isBeforeFirst) return Advance();
    m_isBeforeFirst = false;
    return m_first;
}

HRESULT CSearchRows::Advance() {
    m_summary.reset();
    for (;;) {
        Reset(m_details.get());
        HRESULT result = m_connection.Step(m_search.get());
        if (result != S_OK) return result;
        int bound = ::sqlite3_bind_int64(m_details.get(), 1, ::sqlite3_column_int64(m_search.get(), 0));
        if (bound == SQLITE_OK && ::sqlite3_bind_parameter_count(m_details.get()) > 1) {
            bound = BindText(m_details.get(), 2, m_plan.hits);
        }
        if (bound != SQLITE_OK) return m_connection.Failure(bound);
        result = m_connection.Step(m_details.get());
        // Words without a document are passed over.
        if (result != DB_S_ENDOFROWSET) return result;
    }
}

CSqlValue CSearchRows::Value(std::size_t column) {
    const auto place = static_cast<int>(column);
    if (m_plan.sources[column] == Source::Rank) {
        return RankOf(::sqlite3_column_double(m_search.get(), 1));
    }
    switch (::sqlite3_column_type(m_details.get(), place)) {
        case SQLITE_NULL: return {};
        case SQLITE_INTEGER: return std::int64_t{::sqlite3_column_int64(m_details.get(), place)};
        default: break;
    }
    const std::string_view text = TextAt(m_details.get(), place);
    if (m_plan.sources[column] != Source::Summary) return text;
    if (!m_summary) m_summary = SummaryOf(text);
    return std::string_view(*m_summary);
}

}  // namespace quorbel
