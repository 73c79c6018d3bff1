#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "components/provider/SqlConnection.h"

namespace quorbel {

/// Rows that have all been read already, in memory.
class CSqliteKeptRows final : public ISqlRows {
 public:
    explicit CSqliteKeptRows(std::shared_ptr<const std::vector<CSqlColumn>> columns)
        : m_columns(std::move(columns)) {}
    /// Adds the value of the next column, row by row.
    void Add(const CSqlValue& value);
    /// How much memory they take.
    std::size_t Bytes() const noexcept { return m_values.size() * sizeof(CKept) + m_bytes.size(); }

    std::span<const CSqlColumn> Columns() const override { return *m_columns; }
    HRESULT Next() override;
    CSqlValue Value(std::size_t column) override;

 private:
    enum class Kind : std::uint8_t { Null, Whole, Real, Text, Bytes };
    struct CKept {
        Kind kind = Kind::Null;
        union {
            std::int64_t whole = 0;  // the place in m_bytes of texts and bytes
            double real;
        };
        std::size_t size = 0;
    };
    void AddBytes(Kind kind, std::string_view bytes);

    const std::shared_ptr<const std::vector<CSqlColumn>> m_columns;
    std::vector<CKept> m_values;
    std::string m_bytes;
    std::size_t m_row = 0;  // the present one, counted from 1
};

}  // namespace quorbel
