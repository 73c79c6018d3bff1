#include <chrono>
#include <nlohmann/json.hpp>

#include "components/search/IndexReport.h"
#include "components/search/SearchIndex.h"
#include "components/search/query/QueryHelper.h"
#include "platform/Clock.h"
#include "platform/LocalPath.h"
#include "platform/Root.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/com/Variant.h"
#include "tools/qbctl/Commands.h"
#include "tools/qbctl/HostArgument.h"

namespace quorbel {

namespace {

using Row = std::span<const std::optional<std::string>>;

constexpr std::uint32_t kUsualResults = 10;

CResult<std::string> IndexFolder() {
    const auto root = OpenRootFolder();
    if (!root.IsOk()) return root.Error();
    return (root.Value() / kSearchFolder).string();
}

ExitCode FailWithoutIndex(ErrorCode error) {
    if (error == ErrorCode::FileNotFound) {
        return Fail(L"There is no search index yet: the service makes it when it runs.");
    }
    return Fail(L"The search index cannot be read", error);
}

ExitCode FailWithReason(std::wstring_view what, HRESULT result) {
    const std::wstring reason = TakeErrorInfo();
    return Fail(std::wstring(what) + L": " + (reason.empty() ? HResultMessage(result) : reason));
}

std::wstring Ago(std::int64_t seconds) {
    const std::int64_t passed =
        std::max<std::int64_t>(ToUnixTime(SystemClock().System()).seconds - seconds, 0);
    if (passed < 120) return std::to_wstring(passed) + L" s ago";
    if (passed < 7200) return std::to_wstring(passed / 60) + L" min ago";
    return std::to_wstring(passed / 3600) + L" h ago";
}

void ShowText(const CIndexStatus& status) {
    PrintLine(L"State:      " +
              (status.isFollowed ? FromUtf8(status.state) : L"not followed: the service does not run"));
    PrintLine(L"Changed:    " + (status.changed ? Ago(*status.changed) : L"never"));
    PrintLine(L"Folders:    " + std::to_wstring(status.folders));
    PrintLine(L"Documents:  " + std::to_wstring(status.documents));
    PrintLine(L"With text:  " + std::to_wstring(status.texts));
    PrintLine(L"Waiting:    " + std::to_wstring(status.waiting));
    PrintLine(L"Skipped:    " + std::to_wstring(status.skipped));
    PrintLine(L"Size:       " + std::to_wstring(status.bytes / 1024) + L" KiB");
}

void ShowJson(const CIndexStatus& status) {
    const nlohmann::ordered_json object{
        {"followed", status.isFollowed},
        {"state", status.state},
        {"changed", status.changed ? nlohmann::ordered_json(*status.changed) : nlohmann::ordered_json()},
        {"folders", status.folders},
        {"documents", status.documents},
        {"texts", status.texts},
        {"waiting", status.waiting},
        {"skipped", status.skipped},
        {"bytes", status.bytes}};
    PrintData(object.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace));
}

/// What is shown of a document that was found.
struct CShownColumn {
    const wchar_t* property;
    const char* member;  ///< in JSON
};
constexpr CShownColumn kShown[] = {{L"System.ItemPathDisplay", "path"},
                                   {L"System.Title", "title"},
                                   {L"System.Author", "author"},
                                   {L"System.Size", "size"},
                                   {L"System.DateModified", "modified"},
                                   {L"System.Search.Rank", "rank"},
                                   {L"System.Search.AutoSummary", "summary"}};

std::wstring ShownColumns() {
    std::wstring columns;
    for (const CShownColumn& shown : kShown)
        columns += (columns.empty() ? L"" : L", ") + std::wstring(shown.property);
    return columns;
}

void ShowFound(Row row) {
    std::wstring line = FromUtf8(row[0].value_or(""));
    if (row[1]) line += L"  \"" + FromUtf8(*row[1]) + L"\"";
    PrintLine(line + L"  " + FromUtf8(row[3].value_or("")) + L" bytes  " + FromUtf8(row[4].value_or("")));
    if (row[6] && !row[6]->empty()) PrintLine(L"    " + FromUtf8(*row[6]));
}

void ShowFoundAsJson(Row row) {
    nlohmann::ordered_json object;
    for (std::size_t column = 0; column != std::size(kShown); ++column) {
        const bool isNumber = column == 3 || column == 5;
        const auto& value = row[column];
        object[kShown[column].member] = !value     ? nlohmann::ordered_json()
                                        : isNumber ? nlohmann::ordered_json(std::stoll(*value))
                                                   : nlohmann::ordered_json(*value);
    }
    PrintData(object.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace));
}

/// The command for a query as people type it.
HRESULT MakeCommand(const CArguments& arguments, std::uint32_t most, std::wstring& command) {
    const CComPtr<CSearchQueryHelper> helper(new CSearchQueryHelper);
    HRESULT result = helper->put_QuerySyntax(SearchQuerySyntax::Natural);
    if (Succeeded(result)) result = helper->put_QuerySelectColumns(ShownColumns().c_str());
    if (Succeeded(result)) result = helper->put_QueryMaxResults(static_cast<std::int32_t>(most));
    if (const std::wstring* const scope = arguments.Value(L"--scope"); scope && Succeeded(result)) {
        result =
            helper->put_QueryWhereRestrictions((L"AND SCOPE = '" + DoubleApostrophes(*scope) + L"'").c_str());
    }
    wchar_t* text = nullptr;
    if (Succeeded(result)) result = helper->GenerateSQLFromUserQuery(arguments.Operands()[0].c_str(), &text);
    if (Succeeded(result)) command = text;
    CoTaskMemFree(text);
    return result;
}

}  // namespace

ExitCode SearchStatus(const CArguments& arguments) {
    const auto folder = IndexFolder();
    if (!folder.IsOk()) return Fail(L"The root folder cannot be opened", folder.Error());
    const auto status = ReadIndexStatus(folder.Value());
    if (!status.IsOk()) return FailWithoutIndex(status.Error());
    arguments.Has(L"--json") ? ShowJson(status.Value()) : ShowText(status.Value());
    return ExitCode::Success;
}

ExitCode SearchQuery(const CArguments& arguments) {
    const auto folder = IndexFolder();
    if (!folder.IsOk()) return Fail(L"The root folder cannot be opened", folder.Error());
    std::uint32_t most = kUsualResults;
    if (const std::wstring* const number = arguments.Value(L"--max")) {
        const auto parsed = ParseNumber(*number, 1, 1'000'000);
        if (!parsed) return FailUsage(L"This is no number of results: " + *number, L"search query");
        most = static_cast<std::uint32_t>(*parsed);
    }
    std::wstring command;
    HRESULT result = MakeCommand(arguments, most, command);
    if (!Succeeded(result)) return FailWithReason(L"The query cannot be understood", result);
    result = ForEachFound(folder.Value(), command, arguments.Has(L"--json") ? ShowFoundAsJson : ShowFound);
    return Succeeded(result) ? ExitCode::Success : FailWithReason(L"The search failed", result);
}

ExitCode SearchRebuild(const CArguments&) {
    const auto folder = IndexFolder();
    if (!folder.IsOk()) return Fail(L"The root folder cannot be opened", folder.Error());
    const auto status = ReadIndexStatus(folder.Value());
    if (status.Error() == ErrorCode::FileNotFound) return FailWithoutIndex(status.Error());
    const ErrorCode error = RequestRebuild(folder.Value());
    if (error != ErrorCode::Success) return Fail(L"The index cannot be asked to be made anew", error);
    const bool isFollowed = status.IsOk() && status.Value().isFollowed;
    PrintLine(isFollowed ? L"The service makes the index anew; \"qbctl search status\" shows how far it is."
                         : L"The service makes the index anew when it runs next.");
    return ExitCode::Success;
}

ExitCode SearchSkipped(const CArguments& arguments) {
    const auto folder = IndexFolder();
    if (!folder.IsOk()) return Fail(L"The root folder cannot be opened", folder.Error());
    const bool asJson = arguments.Has(L"--json");
    const ErrorCode error =
        ForEachSkippedFile(folder.Value(), [asJson](std::string_view path, std::string_view reason) {
            if (!asJson) return PrintLine(FromUtf8(path) + L": " + FromUtf8(reason));
            const nlohmann::ordered_json object{{"path", path}, {"reason", reason}};
            PrintData(object.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace));
        });
    return error == ErrorCode::Success ? ExitCode::Success : FailWithoutIndex(error);
}

}  // namespace quorbel
