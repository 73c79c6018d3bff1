#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "data/consumer/RowAccessor.h"
#include "data/scripting/DataAccessor.h"
#include "platform/Lock.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

/// Says how large the buffer of a command's parameter is.
class CAccessorBuffer {
 public:
    /// Bytes for one parameter as the command reports it.
    virtual std::size_t ParameterSize(const DBPARAMINFO& parameter) const = 0;

 protected:
    ~CAccessorBuffer() = default;
};

/// One query: a data source, one command with its parameters, and the rows of its result, one at a time.
/// Failures are HRESULTs; platform/com/ErrorInfo.h may have the provider's description. One thread at a time,
/// but for Cancel.
class CHTMLDataSource : public CAccessorBuffer {
 public:
    class CParameter {
     public:
        CParameter(std::wstring_view name, CVariant value) : name(name), value(std::move(value)) {}
        std::wstring name;
        CVariant value;
    };

    /// The text that stands for a value: (column's ordinal, the value's text).
    using ValueFormatter = std::function<std::wstring(std::size_t ordinal, std::wstring_view value)>;
    /// A value's text by its column's ordinal; null for an ordinal without column.
    using ValueGetter = std::function<const wchar_t*(std::size_t ordinal)>;
    /// Looks at a row that was fetched: S_OK keeps it, S_FALSE skips it.
    using RowFilter = std::function<HRESULT(const ValueGetter& values)>;

    /// What is done with the values while they are fetched.
    struct Rendering {
        CRowAccessor::VariantTyping typing = CRowAccessor::VariantTyping::Own;
        ValueFormatter formatter;  ///< may be empty
        RowFilter filter;          ///< may be empty
    };

    explicit CHTMLDataSource(Rendering rendering);
    virtual ~CHTMLDataSource();
    CHTMLDataSource(const CHTMLDataSource&) = delete;
    CHTMLDataSource& operator=(const CHTMLDataSource&) = delete;

    /// Opens the data source that the initialisation string names, in place of any earlier one.
    HRESULT Open(const std::wstring& initialisation);
    /// Appends a parameter; before Execute. Throws std::bad_alloc.
    void SetParameter(std::wstring_view name, const VARIANT& value) { Append(name, CVariant(value)); }
    void SetParameter(std::wstring_view name, std::wstring_view text) { Append(name, CVariant(text)); }
    /// Runs the command. `result` (null for none wanted) receives the interface asked for, or null when the
    /// result has no such interface. E_FAIL for a parameter that the command does not know;
    /// DB_E_NOTREENTRANT on a thread that is executing or fetching already.
    HRESULT Execute(const std::wstring& text, const GUID& interfaceId, IUnknown** result);

    /// Goes to the next row that the filter keeps and renders it: S_OK, DB_S_ENDOFROWSET, or a failure, of
    /// `render` too. The values are there while `render` runs.
    HRESULT Fetch(const std::function<HRESULT()>& render);
    /// Gives up the result, the command and the session: the connection is free for others.
    HRESULT Close();
    /// Ends what runs, and whatever is tried later, with DB_E_CANCELED. From any thread; does not wait.
    void Cancel() noexcept;

    /// The result's columns, in the provider's order.
    std::span<const CColumn> Columns() const noexcept { return m_columns; }
    /// The place of a column in Columns, by its ordinal or name; kNoColumn when there is none.
    /// @{
    static constexpr std::size_t kNoColumn = ~std::size_t{0};
    std::size_t FindColumn(std::size_t ordinal) const noexcept;
    std::size_t FindColumn(const std::wstring& name) const;
    /// @}

 protected:
    /// How the rows are fetched; before the first Fetch.
    void FetchAs(CRowAccessor::Form form) noexcept { m_form = form; }
    /// The current row's values, by a column's place.
    const CRowAccessor& Values() const noexcept { return m_row; }
    /// A value's text as it is to be shown.
    std::wstring_view ShownText(std::size_t column);

 private:
    class CRegistration;

    void Append(std::wstring_view name, CVariant value) { m_parameters.emplace_back(name, std::move(value)); }
    HRESULT CreateSession(const std::wstring& initialisation);
    HRESULT Prepare(const std::wstring& text);
    HRESULT Run(const GUID& interfaceId, IUnknown** result);
    HRESULT DeclareParameters(ICommandWithParameters& command) const;
    HRESULT SetCommand(CComPtr<ICommand> command);
    HRESULT TakeActions();
    void ReleaseCommand() noexcept;
    HRESULT ReadColumns();
    HRESULT BindRow();
    HRESULT NextRow();
    HRESULT ApplyFilter();
    void ReleaseRow() noexcept;
    void CloseRowset() noexcept;
    void CloseCommand() noexcept;

    const Rendering m_rendering;
    CRowAccessor::Form m_form = CRowAccessor::Form::Text;
    CComPtr<IDBInitialize> m_source;
    CComPtr<IOpenRowset> m_session;
    CComPtr<CDataAccessor::CActionEventHandler> m_actions;  // the provider calls it while a command lives
    CComPtr<IRowset> m_rowset;
    std::vector<CParameter> m_parameters;
    std::vector<CColumn> m_columns;
    std::map<std::wstring, std::size_t> m_columnsByName;
    CRowAccessor m_row;
    HROW m_rowHandle = 0;
    bool m_hasRow = false;
    bool m_hasFetched = false;
    std::wstring m_shown;  // the formatter's last result

    CMutex m_fetching{LockRank::Fetching};  // held while a row is fetched, filtered and rendered

    CMutex m_commandLock{LockRank::Innermost};  // guards:
    CComPtr<ICommand> m_command;
    bool m_isCancelled = false;
};

/// A query together with the buffers of its parameters.
class CHTMLDataBuffer : public CHTMLDataSource {
 public:
    /// For parameters whose size the command does not know, or that may hold anything; bytes.
    static constexpr std::size_t kParameterSize = 8192;

    using CHTMLDataSource::CHTMLDataSource;
    std::size_t ParameterSize(const DBPARAMINFO& parameter) const override {
        const bool isOpen = parameter.wType == DBTYPE_VARIANT || parameter.ulParamSize == kUnknownSize;
        return isOpen ? kParameterSize : parameter.ulParamSize;
    }
};

}  // namespace quorbel
