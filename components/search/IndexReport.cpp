#include "components/search/IndexReport.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <variant>

#include "components/search/SearchIndex.h"
#include "components/search/index/IndexDatabase.h"
#include "components/search/index/IndexWriter.h"
#include "components/search/query/CommandParser.h"
#include "components/search/query/SearchRows.h"
#include "platform/FileDescriptor.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

std::uint64_t SizeOf(const std::string& file) {
    std::error_code ignored;
    const auto size = std::filesystem::file_size(file, ignored);
    return size == static_cast<std::uintmax_t>(-1) ? 0 : size;
}

ErrorCode ReadCounts(CDatabase& index, CIndexStatus& status) {
    CStatement counts = index.Use(
        "SELECT (SELECT count(*) FROM folders), (SELECT count(*) FROM documents), (SELECT count(*) FROM "
        "texts), "
        "(SELECT count(*) FROM documents WHERE pending), "
        "(SELECT count(*) FROM skipped) + (SELECT count(*) FROM documents WHERE problem NOT NULL), "
        "(SELECT value FROM facts WHERE name = 'state'), (SELECT value FROM facts WHERE name = 'changed')");
    const CResult<bool> row = counts.Step();
    if (!row.IsOk()) return row.Error();
    status.folders = counts.Integer(0);
    status.documents = counts.Integer(1);
    status.texts = counts.Integer(2);
    status.waiting = counts.Integer(3);
    status.skipped = counts.Integer(4);
    status.state = counts.Bytes(5);
    if (!counts.Bytes(6).empty()) status.changed = counts.Integer(6);
    return ErrorCode::Success;
}

std::optional<std::string> TextOf(const CSqlValue& value) {
    if (const auto* const text = std::get_if<std::string_view>(&value)) return std::string(*text);
    if (const auto* const number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
    return std::nullopt;
}

}  // namespace

CResult<CIndexStatus> ReadIndexStatus(const std::string& folder) {
    const auto index = CIndexDatabase::Open(folder, CIndexDatabase::Access::Read);
    if (!index.IsOk()) return index.Error();
    CIndexStatus status;
    if (const ErrorCode error = ReadCounts(index.Value()->Statements(), status);
        error != ErrorCode::Success) {
        return error;
    }
    const std::string file = CIndexDatabase::FileIn(folder);
    status.bytes = SizeOf(file) + SizeOf(file + "-wal");
    status.isFollowed = CIndexWriter::IsOpenSomewhere(folder);
    return status;
}

ErrorCode ForEachSkippedFile(const std::string& folder,
                             const std::function<void(std::string_view, std::string_view)>& show) {
    const auto index = CIndexDatabase::Open(folder, CIndexDatabase::Access::Read);
    if (!index.IsOk()) return index.Error();
    CStatement files = index.Value()->Statements().Use(
        "SELECT f.path, s.name, s.reason FROM skipped s JOIN folders f ON f.id = s.folder UNION ALL "
        "SELECT f.path, CAST(d.name AS BLOB), d.problem FROM documents d JOIN folders f ON f.id = d.folder "
        "WHERE d.problem NOT NULL ORDER BY 1, 2");
    for (CResult<bool> row = files.Step(); !row.IsOk() || row.Value(); row = files.Step()) {
        if (!row.IsOk()) return row.Error();
        show(std::string(files.Bytes(0)).append("/").append(files.Bytes(1)), files.Bytes(2));
    }
    return ErrorCode::Success;
}

HRESULT ForEachFound(const std::string& folder, const std::wstring& command,
                     const std::function<void(std::span<const std::optional<std::string>>)>& show) {
    const auto parsed = ParseSearchCommand(command);
    if (const auto* const error = std::get_if<CSyntaxError>(&parsed)) {
        SetErrorInfo(error->Text());
        return DB_E_ERRORSINCOMMAND;
    }
    std::unique_ptr<IConnection> connection;
    HRESULT result = CSearchConnection::Open(folder, {}, SystemClock(), connection);
    if (!Succeeded(result)) return result;
    std::shared_ptr<CSearchRows> rows;
    result = CSearchRows::Open(static_cast<CSearchConnection&>(*connection),
                               PlanSearch(std::get<CSearchCommand>(parsed)), rows);
    std::vector<std::optional<std::string>> values;
    while (Succeeded(result)) {
        result = rows->Next();
        if (result != S_OK) break;
        values.clear();
        for (std::size_t column = 0; column != rows->Columns().size(); ++column) {
            values.push_back(TextOf(rows->Value(column)));
        }
        show(values);
    }
    return Succeeded(result) ? S_OK : result;
}

ErrorCode RequestRebuild(const std::string& folder) {
    const std::string file = folder + "/" + ISearchIndex::kRebuildRequest;
    const CFileDescriptor request(
        ::open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    return request.IsOpen() ? ErrorCode::Success : ErrorFromErrno(errno);
}

}  // namespace quorbel
