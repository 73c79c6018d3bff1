#pragma once

#include <iomanip>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/components/provider/SqlRun.h"

namespace quorbel {

/// Writes a value with a letter for its kind: N(ULL), B(ool), I(nteger), R(eal), D(ecimal), T(ext), X
/// (bytes).
struct CKindAndText {
    std::string operator()(std::monostate) const { return "N"; }
    std::string operator()(bool value) const { return value ? "B1" : "B0"; }
    std::string operator()(std::int64_t value) const { return "I" + std::to_string(value); }
    std::string operator()(double value) const {
        std::ostringstream text;
        text << "R" << std::setprecision(17) << value;
        return text.str();
    }
    std::string operator()(CSqlDecimal value) const { return "D" + std::string(value.digits); }
    std::string operator()(std::string_view value) const { return "T" + std::string(value); }
    std::string operator()(CSqlBytes value) const { return "X" + HexText(value.bytes); }
};

/// What came of a command, with its columns and each value's kind.
struct COdbcOutcome {
    HRESULT result = S_OK;     ///< of the execution, or of the Next that failed
    std::wstring description;  ///< of the failure
    std::vector<CSqlColumn> columns;
    std::vector<std::string> rows;  ///< values joined by "|"
};

/// Executes the command up to its first row.
inline HRESULT OpenOdbc(ISqlConnection& connection, std::wstring_view text, ISqlFunctions& functions,
                        std::unique_ptr<ISqlRows>& rows, const std::vector<CSqlArgument>& arguments = {}) {
    return Opened(connection, text, functions, rows, arguments, SqlDialect::Standard);
}

/// Executes the command and reads all rows. The connection is not reset.
inline COdbcOutcome RunOdbc(ISqlConnection& connection, std::wstring_view text,
                            const std::vector<CSqlArgument>& arguments, ISqlFunctions& functions) {
    TakeErrorInfo();
    COdbcOutcome outcome;
    std::unique_ptr<ISqlRows> rows;
    outcome.result = OpenOdbc(connection, text, functions, rows, arguments);
    if (Succeeded(outcome.result)) {
        outcome.columns.assign(rows->Columns().begin(), rows->Columns().end());
        while ((outcome.result = rows->Next()) == S_OK) {
            std::string& row = outcome.rows.emplace_back();
            for (std::size_t index = 0; index < outcome.columns.size(); ++index) {
                row += (index ? "|" : "") + std::visit(CKindAndText(), rows->Value(index));
            }
        }
        if (outcome.result == DB_S_ENDOFROWSET) outcome.result = S_OK;
    }
    if (!Succeeded(outcome.result)) outcome.description = TakeErrorInfo();
    return outcome;
}
inline COdbcOutcome RunOdbc(ISqlConnection& connection, std::wstring_view text,
                            const std::vector<CSqlArgument>& arguments = {}) {
    CRecordingFunctions functions;
    return RunOdbc(connection, text, arguments, functions);
}

}  // namespace quorbel
