#pragma once

#include <string>
#include <vector>

#include "components/oledb/ValueText.h"
#include "components/provider/SqlCommandParser.h"
#include "components/provider/SqlConnection.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

/// Functions that write down how they were called.
class CRecordingFunctions final : public ISqlFunctions {
 public:
    HRESULT SetProvenance(std::wstring_view provenance) override { return Note(L"provenance ", provenance); }
    HRESULT AddHeader(std::wstring_view field) override { return Note(L"header ", field); }
    HRESULT SetScriptLibrary(std::wstring_view path) override { return Note(L"library ", path); }
    HRESULT SetScriptResource(const VARIANT& resource) override {
        return Note(L"resource ", std::to_wstring(resource.vt));
    }
    HRESULT RunScriptAction(std::wstring_view name, std::span<const CVariant> arguments,
                            CVariant& result) override {
        std::wstring types;
        for (const CVariant& argument : arguments) types += L" " + std::to_wstring(argument.vt);
        if (!arguments.empty()) result = arguments.back();
        return Note(L"action ", std::wstring(name) + types);
    }

    HRESULT answer = S_OK;  ///< to every call
    std::vector<std::wstring> calls;

 private:
    HRESULT Note(std::wstring_view what, std::wstring_view value) {
        calls.push_back(std::wstring(what).append(value));
        if (!Succeeded(answer)) SetErrorInfo(L"As the test wants.");
        return answer;
    }
};

/// A row's values in the manner of SQL, separated by "|".
inline std::string Shown(ISqlRows& rows) {
    std::string line;
    for (std::size_t column = 0; column != rows.Columns().size(); ++column) {
        if (column != 0) line += "|";
        const CSqlValue value = rows.Value(column);
        CNumberText buffer;
        if (const auto* const text = std::get_if<std::string_view>(&value)) {
            line += *text;
        } else if (const auto* const bytes = std::get_if<CSqlBytes>(&value)) {
            line += "x'" + HexText(bytes->bytes) + "'";
        } else if (std::holds_alternative<std::monostate>(value)) {
            line += "NULL";
        } else {
            line += NumberText(CSqlColumn::Type::Variant, value, 100, buffer);
        }
    }
    return line;
}

struct CSqlOutcome {
    HRESULT result = S_OK;
    std::vector<std::string> rows;
    std::wstring description;  ///< of a failure
};

/// Fetches all rows.
inline CSqlOutcome Fetched(ISqlRows& rows) {
    CSqlOutcome outcome;
    while ((outcome.result = rows.Next()) == S_OK) outcome.rows.push_back(Shown(rows));
    if (outcome.result == DB_E_CANCELED || !Succeeded(outcome.result)) outcome.description = TakeErrorInfo();
    if (outcome.result == DB_S_ENDOFROWSET) outcome.result = S_OK;
    return outcome;
}

/// Executes up to the first row.
inline HRESULT Opened(ISqlConnection& connection, std::wstring_view text, ISqlFunctions& functions,
                      std::unique_ptr<ISqlRows>& rows, const std::vector<CSqlArgument>& arguments = {},
                      SqlDialect dialect = SqlDialect::Sqlite) {
    CSqlCommand command;
    const HRESULT result = CSqlCommandParser(dialect, text).Parse(command);
    return Succeeded(result) ? connection.Execute(command, arguments, functions, rows) : result;
}

/// Executes and fetches everything.
inline CSqlOutcome RunSql(ISqlConnection& connection, std::wstring_view text,
                          const std::vector<CSqlArgument>& arguments = {},
                          ISqlFunctions* functions = nullptr) {
    CRecordingFunctions unused;
    std::unique_ptr<ISqlRows> rows;
    const HRESULT result = Opened(
        connection, text, functions ? *functions : static_cast<ISqlFunctions&>(unused), rows, arguments);
    if (!Succeeded(result)) return {result, {}, TakeErrorInfo()};
    return Fetched(*rows);
}

}  // namespace quorbel
