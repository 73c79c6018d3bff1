#include <memory>
#include <new>
#include <vector>

#include "components/search/index/DocumentId.h"
#include "components/search/index/Fts5.h"

namespace quorbel {

namespace {

void FolderOfFunction(sqlite3_context* context, int, sqlite3_value** arguments) {
    ::sqlite3_result_int64(context, CDocumentId::FolderOf(::sqlite3_value_int64(arguments[0])));
}

/// Which folders lie below one; a place for each number of a folder.
using Folders = std::vector<bool>;

constexpr const char* kBelow =
    "SELECT id FROM folders WHERE path = ?1 OR (path > ?1 || '/' AND path < ?1 || '0') ORDER BY id";

int ReadFolders(sqlite3* connection, sqlite3_value* path, Folders& folders) {
    sqlite3_stmt* statement = nullptr;
    int result = ::sqlite3_prepare_v2(connection, kBelow, -1, &statement, nullptr);
    if (result == SQLITE_OK) result = ::sqlite3_bind_value(statement, 1, path);
    while (result == SQLITE_OK && (result = ::sqlite3_step(statement)) == SQLITE_ROW) {
        const auto id = static_cast<std::size_t>(::sqlite3_column_int64(statement, 0));
        if (folders.size() <= id) folders.resize(id + 1);
        folders[id] = true;
        result = SQLITE_OK;
    }
    ::sqlite3_finalize(statement);
    return result == SQLITE_DONE ? SQLITE_OK : result;
}

void IsBelowFunction(sqlite3_context* context, int, sqlite3_value** arguments) {
    // Kept as long as the statement runs, in which the path is the same for all rows.
    constexpr int kPath = 1;
    try {
        const auto* folders = static_cast<const Folders*>(::sqlite3_get_auxdata(context, kPath));
        std::unique_ptr<Folders> read;
        if (!folders) {
            read = std::make_unique<Folders>();
            const int result = ReadFolders(::sqlite3_context_db_handle(context), arguments[kPath], *read);
            if (result != SQLITE_OK) return ::sqlite3_result_error_code(context, result);
            folders = read.get();
        }
        const auto folder = static_cast<std::size_t>(::sqlite3_value_int64(arguments[0]));
        ::sqlite3_result_int(context, folder < folders->size() && (*folders)[folder] ? 1 : 0);
        if (read) {
            ::sqlite3_set_auxdata(context, kPath, read.release(),
                                  [](void* data) { delete static_cast<Folders*>(data); });
        }
    } catch (const std::bad_alloc&) {
        ::sqlite3_result_error_nomem(context);
    }
}

}  // namespace

int RegisterFolders(sqlite3* connection) {
    constexpr int kPure = SQLITE_UTF8 | SQLITE_DETERMINISTIC;
    const int result = ::sqlite3_create_function_v2(connection, "folder_of", 1, kPure, nullptr,
                                                    FolderOfFunction, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) return result;
    return ::sqlite3_create_function_v2(connection, "is_below", 2, SQLITE_UTF8, nullptr, IsBelowFunction,
                                        nullptr, nullptr, nullptr);
}

}  // namespace quorbel
