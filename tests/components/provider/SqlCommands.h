#pragma once

#include <memory>
#include <string>
#include <vector>

#include "components/provider/SqlConnection.h"

namespace quorbel {

/// Functions of a command that write down how they are called.
class CRecordedFunctions final : public ISqlFunctions {
 public:
    HRESULT SetProvenance(std::wstring_view provenance) override { return Add(L"provenance ", provenance); }
    HRESULT AddHeader(std::wstring_view field) override { return Add(L"header ", field); }
    HRESULT SetScriptLibrary(std::wstring_view path) override { return Add(L"library ", path); }
    HRESULT SetScriptResource(const VARIANT&) override { return Add(L"resource", {}); }
    HRESULT RunScriptAction(std::wstring_view name, std::span<const CVariant>, CVariant& result) override {
        result = CVariant(std::wstring_view(L"done"));
        return Add(L"action ", name);
    }

    std::vector<std::wstring> calls;

 private:
    HRESULT Add(std::wstring_view what, std::wstring_view text) {
        calls.push_back(std::wstring(what) + std::wstring(text));
        return S_OK;
    }
};

/// A value as text, with a letter for its kind: N(ULL), B(ool), I(nteger), R(eal), D(ecimal), T(ext), X
/// (bytes).
std::string Show(const CSqlValue& value);

/// The values of the current row, joined by "|".
std::string ShowRow(ISqlRows& rows);

/// What came of a command.
struct COutcome {
    HRESULT result = S_OK;     ///< of the execution, or of the Next that failed
    std::wstring description;  ///< of the failure
    std::vector<CSqlColumn> columns;
    std::vector<std::string> rows;
};

/// Parses the command, executes it and reads all rows. The connection is not reset.
COutcome RunCommand(ISqlConnection& connection, std::wstring_view text,
                    const std::vector<CSqlArgument>& arguments, ISqlFunctions& functions);
COutcome RunCommand(ISqlConnection& connection, std::wstring_view text,
                    const std::vector<CSqlArgument>& arguments = {});

/// Parses the command and executes it.
HRESULT OpenCommand(ISqlConnection& connection, std::wstring_view text,
                    const std::vector<CSqlArgument>& arguments, ISqlFunctions& functions,
                    std::unique_ptr<ISqlRows>& rows);

}  // namespace quorbel
