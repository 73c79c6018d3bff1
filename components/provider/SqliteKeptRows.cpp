#include "components/provider/SqliteKeptRows.h"

#include "platform/oledb/OleDb.h"

namespace quorbel {

void CSqliteKeptRows::Add(const CSqlValue& value) {
    if (const auto* const whole = std::get_if<std::int64_t>(&value)) {
        m_values.emplace_back().kind = Kind::Whole;
        m_values.back().whole = *whole;
    } else if (const auto* const real = std::get_if<double>(&value)) {
        m_values.emplace_back().kind = Kind::Real;
        m_values.back().real = *real;
    } else if (const auto* const text = std::get_if<std::string_view>(&value)) {
        AddBytes(Kind::Text, *text);
    } else if (const auto* const bytes = std::get_if<CSqlBytes>(&value)) {
        AddBytes(Kind::Bytes, bytes->bytes);
    } else {
        m_values.emplace_back();
    }
}

void CSqliteKeptRows::AddBytes(Kind kind, std::string_view bytes) {
    CKept& kept = m_values.emplace_back();
    kept.kind = kind;
    kept.whole = static_cast<std::int64_t>(m_bytes.size());
    kept.size = bytes.size();
    m_bytes += bytes;
}

HRESULT CSqliteKeptRows::Next() {
    ++m_row;
    return m_row * m_columns->size() <= m_values.size() && !m_columns->empty() ? S_OK : DB_S_ENDOFROWSET;
}

CSqlValue CSqliteKeptRows::Value(std::size_t column) {
    const CKept& kept = m_values[(m_row - 1) * m_columns->size() + column];
    const auto bytes = [&] { return std::string_view(m_bytes).substr(kept.whole, kept.size); };
    switch (kept.kind) {
        case Kind::Null: break;
        case Kind::Whole: return kept.whole;
        case Kind::Real: return kept.real;
        case Kind::Text: return bytes();
        case Kind::Bytes: return CSqlBytes{bytes()};
    }
    return std::monostate();
}

}  // namespace quorbel
