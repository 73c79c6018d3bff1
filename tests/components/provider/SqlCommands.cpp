#include "tests/components/provider/SqlCommands.h"

#include <iomanip>
#include <sstream>

#include "components/provider/SqlCommandParser.h"
#include "platform/Error.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

struct CShow {
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
    std::string operator()(CSqlBytes value) const {
        std::wstring digits;
        for (const char byte : value.bytes) digits += ToHex(static_cast<unsigned char>(byte), 2);
        return "X" + ToUtf8(digits);
    }
};

}  // namespace

std::string Show(const CSqlValue& value) {
    return std::visit(CShow(), value);
}

std::string ShowRow(ISqlRows& rows) {
    std::string row;
    for (std::size_t index = 0; index < rows.Columns().size(); ++index) {
        row += (index ? "|" : "") + Show(rows.Value(index));
    }
    return row;
}

HRESULT OpenCommand(ISqlConnection& connection, std::wstring_view text,
                    const std::vector<CSqlArgument>& arguments, ISqlFunctions& functions,
                    std::unique_ptr<ISqlRows>& rows) {
    CSqlCommand command;
    const HRESULT parsed = CSqlCommandParser(SqlDialect::Standard, text).Parse(command);
    return Succeeded(parsed) ? connection.Execute(command, arguments, functions, rows) : parsed;
}

COutcome RunCommand(ISqlConnection& connection, std::wstring_view text,
                    const std::vector<CSqlArgument>& arguments, ISqlFunctions& functions) {
    Ignore(TakeErrorInfo());
    COutcome outcome;
    std::unique_ptr<ISqlRows> rows;
    outcome.result = OpenCommand(connection, text, arguments, functions, rows);
    if (Succeeded(outcome.result)) {
        outcome.columns.assign(rows->Columns().begin(), rows->Columns().end());
        while ((outcome.result = rows->Next()) == S_OK) outcome.rows.push_back(ShowRow(*rows));
        if (outcome.result == DB_S_ENDOFROWSET) outcome.result = S_OK;
    }
    if (!Succeeded(outcome.result)) outcome.description = TakeErrorInfo();
    return outcome;
}

COutcome RunCommand(ISqlConnection& connection, std::wstring_view text,
                    const std::vector<CSqlArgument>& arguments) {
    CRecordedFunctions functions;
    return RunCommand(connection, text, arguments, functions);
}

}  // namespace quorbel
