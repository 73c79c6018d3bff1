#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/com/ClassRegistry.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

/// What the provider "Fake" answers to every command, and what it was asked.
struct CFakeQuery {
    struct Column {
        std::wstring name;
        DBTYPE type = DBTYPE_WSTR;
        std::size_t size = 100;
        std::optional<std::size_t> ordinal{};  ///< by default the next one
    };
    struct Value {
        std::wstring text;
        DBSTATUS status = DBSTATUS_S_OK;
        DBTYPE type = DBTYPE_WSTR;  ///< a variant's own
        CVariant own{};             ///< when it is not fetched as text
    };

    std::vector<Column> columns;
    std::vector<std::vector<Value>> rows;
    HRESULT initialise = S_OK;
    HRESULT execute = S_OK;
    HRESULT atEnd = DB_S_ENDOFROWSET;  ///< what comes behind the last row
    bool offersIStreamOnly = false;
    std::vector<std::wstring>
        reported;  ///< names of parameters that the command knows instead of those declared
    std::map<std::wstring, CVariant>
        values;  ///< what IResultValues gives; without any there is no such interface
    std::function<void(ICommand&)> onExecute;  ///< called while the command runs

    std::wstring text;
    std::vector<DBPARAMBINDINFO> declared;  ///< their names are in `names`
    std::vector<std::wstring> names;
    std::vector<CVariant> arguments;
    std::vector<DBBINDING> bindings;  ///< of the last row accessor
    int openObjects = 0;              ///< sources, sessions, commands, rowsets and accessors
};

/// Makes the provider "Fake" known, which uses `query` from now on.
CComRegistration RegisterFakeProvider(std::shared_ptr<CFakeQuery> query);

/// A stream over these bytes that fails with `result` at their end, unless that is S_OK.
CVariant MakeStream(std::string bytes, HRESULT result = S_OK);

}  // namespace quorbel
