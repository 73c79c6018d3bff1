#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

/// One column of a result.
struct CColumn {
    std::wstring name;
    DBCOLUMNINFO info;  ///< its pwszName is not used
};

/// The status says that there is a value, whole or cut.
constexpr bool HasValue(DBSTATUS status) noexcept {
    return status == DBSTATUS_S_OK || status == DBSTATUS_S_TRUNCATED || status == DBSTATUS_S_DEFAULT;
}

/// The buffer into which the values of one row are fetched, and the accessor that describes it. One thread at
/// a time.
class CRowAccessor {
 public:
    /// How values are fetched.
    enum class Form {
        Text,     ///< as text, of a length that the column's type bounds (see ReservedCharacters)
        OwnTypes  ///< with the type of their column; long ones as ISequentialStream (IStream where need be)
    };
    /// Whether a value of a DBTYPE_VARIANT column says its own type; else it counts as text.
    enum class VariantTyping { Own, Text };

    /// Texts longer than that are fetched into memory that the provider allocates, others into the buffer.
    static constexpr std::size_t kLongestInBuffer = 8000;
    /// The characters within which a column's values are fetched as text.
    static std::size_t ReservedCharacters(const DBCOLUMNINFO& column) noexcept;

    CRowAccessor() = default;
    ~CRowAccessor() { Release(); }
    CRowAccessor(const CRowAccessor&) = delete;
    CRowAccessor& operator=(const CRowAccessor&) = delete;

    /// Binds all columns but a bookmark (ordinal 0). Throws std::bad_alloc.
    HRESULT Bind(CComPtr<IAccessor> accessor, std::span<const CColumn> columns, Form form,
                 VariantTyping typing);
    bool IsBound() const noexcept { return static_cast<bool>(m_accessor); }
    /// Fetches a row's values; ReleaseValues once they have been used.
    HRESULT GetData(IRowset& rowset, HROW row);
    void ReleaseValues() noexcept;
    /// Gives up the accessor.
    void Release() noexcept;

    /// The value of the column at a place in the list given to Bind.
    /// @{
    DBSTATUS Status(std::size_t column) const noexcept;
    /// Form::Text: ends with a zero that does not belong to it. Empty when the status says that there is
    /// none.
    std::wstring_view Text(std::size_t column) const noexcept;
    /// Form::OwnTypes, a DBTYPE_VARIANT column whose value is there.
    const VARIANT& Variant(std::size_t column) const noexcept;
    /// The type that the value is rendered as.
    DBTYPE OutputType(std::size_t column) const noexcept;
    /// @}

 private:
    struct CPlace {
        std::size_t binding;  ///< kNotBound for a bookmark
        DBTYPE providerType;
        DBTYPE variantType;  ///< of a DBTYPE_VARIANT column's current value
    };
    static constexpr std::size_t kNotBound = ~std::size_t{0};

    void AddBinding(const CColumn& column, Form form);
    void DescribeText(const CColumn& column, DBBINDING& binding);
    void DescribeOwnType(const CColumn& column, DBBINDING& binding);
    void Lay(DBBINDING& binding);
    HRESULT CreateAccessor();
    const DBBINDING& BindingOf(std::size_t column) const noexcept {
        return m_bindings[m_places[column].binding];
    }
    template <class T>
    T& At(std::size_t offset) const noexcept {
        return *reinterpret_cast<T*>(m_buffer.get() + offset);
    }

    CComPtr<IAccessor> m_accessor;
    HACCESSOR m_handle = 0;
    VariantTyping m_typing = VariantTyping::Own;
    std::vector<CPlace> m_places;
    std::vector<DBBINDEXT> m_extensions;  // one a column; bindings point here
    std::vector<DBBINDING> m_bindings;
    DBOBJECT m_storageObject{0, ISequentialStream::kId};
    std::size_t m_size = 0;  // of the buffer, bytes
    std::unique_ptr<std::byte[]> m_buffer;
    bool m_hasValues = false;
};

}  // namespace quorbel
