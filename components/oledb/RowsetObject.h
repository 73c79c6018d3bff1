#pragma once

#include "components/oledb/RowReader.h"

namespace quorbel {

/// A rowset over the rows of a command, with more interfaces beside those that every rowset has. Used by one
/// thread at a time.
template <class... Interfaces>
class CRowsetObject : public CComObject<IRowset, IAccessor, IColumnsInfo, Interfaces...> {
 public:
    HRESULT GetData(HROW row, HACCESSOR accessor, void* data) override {
        return m_reader.GetData(row, accessor, data);
    }
    HRESULT GetNextRows(HCHAPTER, std::ptrdiff_t offset, std::ptrdiff_t count, std::size_t* obtained,
                        HROW** rows) override {
        return m_reader.GetNextRows(offset, count, obtained, rows);
    }
    HRESULT ReleaseRows(std::size_t count, const HROW* rows, std::uint32_t*, std::uint32_t* references,
                        DBSTATUS*) override {
        return m_reader.ReleaseRows(count, rows, references);
    }
    HRESULT RestartPosition(HCHAPTER) override { return m_reader.RestartPosition(); }

    HRESULT CreateAccessor(std::uint32_t flags, std::size_t count, const DBBINDING* bindings, std::size_t,
                           HACCESSOR* accessor, DBSTATUS* statuses) override {
        return m_reader.CreateAccessor(flags, count, bindings, accessor, statuses);
    }
    HRESULT ReleaseAccessor(HACCESSOR accessor, std::uint32_t* references) override {
        return m_reader.ReleaseAccessor(accessor, references);
    }

    HRESULT GetColumnInfo(std::size_t* count, DBCOLUMNINFO** info, wchar_t** names) override {
        return m_reader.GetColumnInfo(count, info, names);
    }

 protected:
    /// Throws std::bad_alloc.
    CRowsetObject(std::shared_ptr<ISqlRows> rows, std::function<bool()> isCanceled)
        : m_reader(std::move(rows), std::move(isCanceled)) {}

 private:
    CRowReader m_reader;
};

}  // namespace quorbel
