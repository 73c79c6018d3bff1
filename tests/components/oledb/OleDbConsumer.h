#pragma once

#include <cstddef>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "platform/com/ClassRegistry.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

/// What the service asks of a provider, without the service.

/// A parameter as the service declares it.
struct CDeclared {
    std::wstring name;
    CVariant value;
};

inline HRESULT OpenSession(CComPtr<IOpenRowset>& session,
                           const wchar_t* initialisation = L"Provider=Quorbel.OLEDBProvider") {
    CComPtr<IDataInitialize> initialize;
    CComPtr<IUnknown> object;
    CComPtr<IDBInitialize> source;
    CComPtr<IDBCreateSession> sessions;
    HRESULT result = CreateComInstance(kDataInitializeClass, initialize);
    if (Succeeded(result)) {
        result = initialize->GetDataSource(nullptr, 0, initialisation, IDBInitialize::kId, object.Receive());
    }
    if (Succeeded(result)) result = object.QueryInterface(source);
    if (Succeeded(result)) result = source.QueryInterface(sessions);
    if (!Succeeded(result)) return result;
    const auto create = [&] {
        return sessions->CreateSession(nullptr, IOpenRowset::kId,
                                       reinterpret_cast<IUnknown**>(session.Receive()));
    };
    EXPECT_EQ(create(), E_UNEXPECTED) << "before it is initialised";
    result = source->Initialize();
    return Succeeded(result) ? create() : result;
}

inline HRESULT MakeCommand(const CComPtr<IOpenRowset>& session, const std::wstring& text,
                           CComPtr<ICommand>& command) {
    CComPtr<IDBCreateCommand> commands;
    CComPtr<ICommandText> made;
    HRESULT result = session.QueryInterface(commands);
    if (Succeeded(result)) {
        result =
            commands->CreateCommand(nullptr, ICommandText::kId, reinterpret_cast<IUnknown**>(made.Receive()));
    }
    if (Succeeded(result)) result = made->SetCommandText(DBGUID_DEFAULT, text.c_str());
    return Succeeded(result) ? made.QueryInterface(command) : result;
}

inline HRESULT Execute(const CComPtr<ICommand>& command, CComPtr<IRowset>& rowset,
                       DBPARAMS* parameters = nullptr) {
    std::int64_t affected = 0;
    return command->Execute(nullptr, IRowset::kId, parameters, &affected,
                            reinterpret_cast<IUnknown**>(rowset.Receive()));
}

/// Declares parameters, makes an accessor and executes.
inline HRESULT Execute(const CComPtr<ICommand>& command, const std::vector<CDeclared>& declared,
                       CComPtr<IRowset>& rowset) {
    CComPtr<ICommandWithParameters> parameters;
    CComPtr<IAccessor> accessors;
    EXPECT_EQ(command.QueryInterface(parameters), S_OK);
    EXPECT_EQ(command.QueryInterface(accessors), S_OK);
    std::vector<std::size_t> ordinals;
    std::vector<DBPARAMBINDINFO> infos;
    std::vector<DBBINDING> bindings;
    std::vector<VARIANT> buffer;
    for (const CDeclared& one : declared) {
        const bool isText = one.value.vt == VT_BSTR;
        ordinals.push_back(ordinals.size() + 1);
        infos.push_back({isText ? L"DBTYPE_WVARCHAR" : nullptr, one.name.c_str(), isText ? 8U : 0U, 0,
                         static_cast<std::uint8_t>(isText ? 255 : 0),
                         static_cast<std::uint8_t>(isText ? 255 : 0)});
        const std::size_t offset =
            buffer.size() * sizeof(VARIANT) + (isText ? offsetof(VARIANT, bstrVal) : 0);
        bindings.push_back({ordinals.size(), offset, 0, 0, nullptr, nullptr, DBPART_VALUE, DBPARAMIO_INPUT,
                            isText ? 8U : sizeof(VARIANT), isText ? DBTYPE_BSTR : DBTYPE_VARIANT});
        buffer.push_back(one.value);
    }
    EXPECT_EQ(parameters->SetParameterInfo(declared.size(), ordinals.data(), infos.data()), S_OK);
    HACCESSOR accessor = 0;
    EXPECT_EQ(accessors->CreateAccessor(DBACCESSOR_PARAMETERDATA, bindings.size(), bindings.data(),
                                        buffer.size() * sizeof(VARIANT), &accessor, nullptr),
              S_OK);
    DBPARAMS set{buffer.data(), 1, accessor};
    return Execute(command, rowset, &set);
}

/// The types of a rowset's columns.
inline std::vector<DBTYPE> TypesOf(const CComPtr<IRowset>& rowset) {
    CComPtr<IColumnsInfo> columns;
    EXPECT_EQ(rowset.QueryInterface(columns), S_OK);
    std::size_t count = 0;
    DBCOLUMNINFO* info = nullptr;
    wchar_t* names = nullptr;
    EXPECT_EQ(columns->GetColumnInfo(&count, &info, &names), S_OK);
    std::vector<DBTYPE> types;
    for (std::size_t column = 0; column != count; ++column) types.push_back(info[column].wType);
    CoTaskMemFree(info);
    CoTaskMemFree(names);
    return types;
}

/// Fetches all rows, each column as text of up to 511 characters, joined by "|"; "#" and the status of those
/// that have none. What came behind the last row is `end`.
inline std::vector<std::wstring> Fetch(const CComPtr<IRowset>& rowset, HRESULT* end = nullptr) {
    constexpr std::size_t kCharacters = 512;
    struct CSlot {
        DBSTATUS status;
        wchar_t text[kCharacters];
    };
    CComPtr<IAccessor> accessors;
    EXPECT_EQ(rowset.QueryInterface(accessors), S_OK);
    const std::size_t count = TypesOf(rowset).size();
    std::vector<DBBINDING> bindings;
    for (std::size_t column = 0; column != count; ++column) {
        const std::size_t at = column * sizeof(CSlot);
        bindings.push_back({column + 1, at + offsetof(CSlot, text), 0, at, nullptr, nullptr,
                            DBPART_VALUE | DBPART_STATUS, DBPARAMIO_NOTPARAM, kCharacters, DBTYPE_WSTR});
    }
    std::vector<CSlot> row(count);
    HACCESSOR accessor = 0;
    EXPECT_EQ(accessors->CreateAccessor(DBACCESSOR_ROWDATA, count, bindings.data(), count * sizeof(CSlot),
                                        &accessor, nullptr),
              S_OK);
    std::vector<std::wstring> lines;
    for (;;) {
        HROW handle = 0;
        HROW* handles = &handle;
        std::size_t obtained = 0;
        const HRESULT next = rowset->GetNextRows(0, 0, 1, &obtained, &handles);
        if (end) *end = next;
        if (next != S_OK) return lines;
        EXPECT_EQ(obtained, 1U);
        EXPECT_TRUE(Succeeded(rowset->GetData(handle, accessor, row.data())));
        std::wstring& line = lines.emplace_back();
        for (const CSlot& slot : row) {
            if (&slot != row.data()) line += L"|";
            line += slot.status == DBSTATUS_S_OK       ? slot.text
                    : slot.status == DBSTATUS_S_ISNULL ? L"NULL"
                                                       : L"#" + std::to_wstring(slot.status);
        }
        EXPECT_EQ(rowset->ReleaseRows(1, &handle, nullptr, nullptr, nullptr), S_OK);
    }
}

}  // namespace quorbel
