#include "tests/support/service/FakeProvider.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <stdexcept>

#include "components/provider/ResultValues.h"
#include "platform/Error.h"

namespace quorbel {

namespace {

using Query = std::shared_ptr<CFakeQuery>;

/// Counts an object while it lives.
class CCounted {
 public:
    explicit CCounted(Query query) : m_query(std::move(query)) { ++m_query->openObjects; }
    ~CCounted() { --m_query->openObjects; }
    CCounted(const CCounted&) = delete;
    CFakeQuery* operator->() const { return m_query.get(); }
    const Query& Get() const { return m_query; }

 private:
    const Query m_query;
};

class CBytes final : public CComObject<ISequentialStream> {
 public:
    CBytes(std::string bytes, HRESULT result) : m_bytes(std::move(bytes)), m_result(result) {}
    HRESULT Read(void* buffer, std::uint32_t size, std::uint32_t* read) override {
        *read = static_cast<std::uint32_t>(std::min<std::size_t>(size, m_bytes.size() - m_offset));
        if (*read == 0) return m_result;
        std::memcpy(buffer, m_bytes.data() + m_offset, *read);
        m_offset += *read;
        return S_OK;
    }
    HRESULT Write(const void*, std::uint32_t, std::uint32_t*) override { return E_NOTIMPL; }

 private:
    const std::string m_bytes;
    const HRESULT m_result;
    std::size_t m_offset = 0;
};

template <class T>
T& At(void* data, std::size_t offset) {
    return *reinterpret_cast<T*>(static_cast<char*>(data) + offset);
}

/// The rowset when the command gives values beside its rows.
class CFakeRowset : public CComObject<IRowset, IAccessor, IColumnsInfo, IResultValues> {
 public:
    explicit CFakeRowset(const Query& query) : m_query(query) {}

    HRESULT QueryInterface(const GUID& id, void** object) override {
        if (id == IResultValues::kId && m_query->values.empty()) return E_NOINTERFACE;
        return CComObject::QueryInterface(id, object);
    }
    HRESULT GetColumnInfo(std::size_t* count, DBCOLUMNINFO** info, wchar_t** names) override {
        *count = m_query->columns.size();
        *info = static_cast<DBCOLUMNINFO*>(CoTaskMemAlloc(*count * sizeof(DBCOLUMNINFO)));
        *names = nullptr;
        for (std::size_t place = 0; place != *count; ++place) {
            const auto& column = m_query->columns[place];
            (*info)[place] = {column.name.c_str(),
                              column.ordinal.value_or(place + 1),
                              0,
                              column.size,
                              column.type,
                              255,
                              255,
                              {}};
        }
        return S_OK;
    }
    HRESULT CreateAccessor(std::uint32_t, std::size_t count, const DBBINDING* bindings, std::size_t,
                           HACCESSOR* accessor, DBSTATUS*) override {
        for (const DBBINDING& binding : std::span(bindings, count)) {
            if (m_query->offersIStreamOnly && binding.pObject && binding.pObject->iid != IStream::kId)
                return E_NOINTERFACE;
        }
        m_query->bindings.assign(bindings, bindings + count);
        ++m_query->openObjects;
        *accessor = 1;
        return S_OK;
    }
    HRESULT ReleaseAccessor(HACCESSOR, std::uint32_t*) override {
        --m_query->openObjects;
        return S_OK;
    }
    HRESULT RestartPosition(HCHAPTER) override {
        m_next = 0;
        return S_OK;
    }
    HRESULT GetNextRows(HCHAPTER, std::ptrdiff_t, std::ptrdiff_t, std::size_t* obtained,
                        HROW** rows) override {
        *obtained = m_next < m_query->rows.size() ? 1 : 0;
        if (*obtained == 0) return m_query->atEnd;
        **rows = ++m_next;
        return S_OK;
    }
    HRESULT ReleaseRows(std::size_t, const HROW*, std::uint32_t*, std::uint32_t*, DBSTATUS*) override {
        return S_OK;
    }
    HRESULT GetData(HROW row, HACCESSOR, void* data) override {
        for (const DBBINDING& binding : m_query->bindings)
            Fill(binding, ValueOf(row, binding.iOrdinal), data);
        return DB_S_ERRORSOCCURRED;
    }
    HRESULT GetCount(std::uint32_t* count) override {
        *count = static_cast<std::uint32_t>(m_query->values.size());
        return S_OK;
    }
    HRESULT GetValue(const VARIANT* name, VARIANT* value) override {
        return VariantCopy(*value, m_query->values[std::wstring(ToView(name->bstrVal))]);
    }

 private:
    const CFakeQuery::Value& ValueOf(HROW row, std::size_t ordinal) const {
        for (std::size_t place = 0; place != m_query->columns.size(); ++place) {
            if (m_query->columns[place].ordinal.value_or(place + 1) == ordinal)
                return m_query->rows[row - 1][place];
        }
        throw std::logic_error("a column that nobody has");
    }
    static void Fill(const DBBINDING& binding, const CFakeQuery::Value& value, void* data) {
        At<DBSTATUS>(data, binding.obStatus) = value.status;
        At<std::size_t>(data, binding.obLength) = value.text.size();
        if (binding.pBindExt) *binding.pBindExt->pExtension = value.type;
        if (value.status != DBSTATUS_S_OK) return;
        if (binding.wType == (DBTYPE_WSTR | DBTYPE_BYREF)) {
            auto* const text =
                static_cast<wchar_t*>(CoTaskMemAlloc((value.text.size() + 1) * sizeof(wchar_t)));
            std::wmemcpy(text, value.text.c_str(), value.text.size() + 1);
            At<wchar_t*>(data, binding.obValue) = text;
        } else if (binding.wType == DBTYPE_WSTR) {
            const std::size_t most = std::min(value.text.size(), binding.cbMaxLen - 1);
            std::wmemcpy(&At<wchar_t>(data, binding.obValue), value.text.c_str(), most);
            if (most < value.text.size()) At<DBSTATUS>(data, binding.obStatus) = DBSTATUS_S_TRUNCATED;
        } else if (binding.wType == DBTYPE_VARIANT) {
            VARIANT& target = At<VARIANT>(data, binding.obValue);
            target = VARIANT();
            Ignore(VariantCopy(target, value.own));
        }
    }

    const CCounted m_query;
    std::size_t m_next = 0;
};

class CFakeCommand final : public CComObject<ICommandText, ICommandWithParameters, IAccessor> {
 public:
    explicit CFakeCommand(const Query& query) : m_query(query) {}

    HRESULT Cancel() override { return S_OK; }
    HRESULT SetCommandText(const GUID& dialect, const wchar_t* text) override {
        m_query->text = text;
        return dialect == DBGUID_DEFAULT ? S_OK : DB_E_DIALECTNOTSUPPORTED;
    }
    HRESULT SetParameterInfo(std::size_t count, const std::size_t* ordinals,
                             const DBPARAMBINDINFO* info) override {
        for (std::size_t place = 0; place != count; ++place) {
            if (ordinals[place] != place + 1) return E_INVALIDARG;
            m_query->names.emplace_back(info[place].pwszName);
        }
        m_query->declared.assign(info, info + count);
        return S_OK;
    }
    HRESULT GetParameterInfo(std::size_t* count, DBPARAMINFO** info) override {
        const auto& names = m_query->reported.empty() ? m_query->names : m_query->reported;
        *count = names.size();
        *info = static_cast<DBPARAMINFO*>(CoTaskMemAlloc(*count * sizeof(DBPARAMINFO)));
        for (std::size_t place = 0; place != *count; ++place) {
            const bool isText =
                place < m_query->declared.size() && m_query->declared[place].pwszDataSourceType;
            (*info)[place] = {0,
                              place + 1,
                              names[place].c_str(),
                              isText ? sizeof(BSTR) : 0,
                              isText ? DBTYPE_WSTR : DBTYPE_VARIANT,
                              255,
                              255};
        }
        return S_OK;
    }
    HRESULT CreateAccessor(std::uint32_t, std::size_t count, const DBBINDING* bindings, std::size_t,
                           HACCESSOR* accessor, DBSTATUS*) override {
        m_bindings.assign(bindings, bindings + count);
        ++m_query->openObjects;
        *accessor = 1;
        return S_OK;
    }
    HRESULT ReleaseAccessor(HACCESSOR, std::uint32_t*) override {
        --m_query->openObjects;
        return S_OK;
    }
    HRESULT Execute(IUnknown*, const GUID& interfaceId, DBPARAMS* parameters, std::int64_t*,
                    IUnknown** rowset) override {
        m_query->arguments.resize(m_bindings.size());
        for (const DBBINDING& binding : m_bindings) {
            CVariant& argument = m_query->arguments[binding.iOrdinal - 1];
            argument = binding.wType == DBTYPE_BSTR
                           ? CVariant(ToView(At<BSTR>(parameters->pData, binding.obValue)))
                           : CVariant(At<VARIANT>(parameters->pData, binding.obValue));
        }
        if (m_query->onExecute) m_query->onExecute(*this);
        if (m_query->execute != S_OK) return m_query->execute;
        return CComPtr<IRowset>(new CFakeRowset(m_query.Get()))
            ->QueryInterface(interfaceId, reinterpret_cast<void**>(rowset));
    }

 private:
    const CCounted m_query;
    std::vector<DBBINDING> m_bindings;
};

class CFakeSession final : public CComObject<IOpenRowset, IDBCreateCommand> {
 public:
    explicit CFakeSession(const Query& query) : m_query(query) {}
    HRESULT CreateCommand(IUnknown*, const GUID& interfaceId, IUnknown** command) override {
        return CComPtr<ICommandText>(new CFakeCommand(m_query.Get()))
            ->QueryInterface(interfaceId, reinterpret_cast<void**>(command));
    }

 private:
    const CCounted m_query;
};

class CFakeSource final : public CComObject<IDBInitialize, IDBCreateSession> {
 public:
    explicit CFakeSource(const Query& query) : m_query(query) {}
    HRESULT Initialize() override { return m_query->initialise; }
    HRESULT Uninitialize() override { return S_OK; }
    HRESULT CreateSession(IUnknown*, const GUID& interfaceId, IUnknown** session) override {
        return CComPtr<IOpenRowset>(new CFakeSession(m_query.Get()))
            ->QueryInterface(interfaceId, reinterpret_cast<void**>(session));
    }

 private:
    const CCounted m_query;
};

constexpr GUID kFakeProviderClass{
    0x5A1D7C3E, 0x21F4, 0x4B7A, {0x8C, 0x11, 0x3F, 0x6E, 0x92, 0x0B, 0x5D, 0x47}};

}  // namespace

CComRegistration RegisterFakeProvider(std::shared_ptr<CFakeQuery> query) {
    return {kFakeProviderClass, L"Fake", [query = std::move(query)](const GUID& interfaceId, void** object) {
                return CComPtr<IDBInitialize>(new CFakeSource(query))->QueryInterface(interfaceId, object);
            }};
}

CVariant MakeStream(std::string bytes, HRESULT result) {
    return CVariant::FromUnknown(
        CComPtr<IUnknown>(static_cast<ISequentialStream*>(new CBytes(std::move(bytes), result))));
}

}  // namespace quorbel
