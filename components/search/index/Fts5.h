#pragma once

#include <functional>
#include <sqlite3.h>

namespace quorbel {

/// What a connection to the index adds to SQLite; IndexDatabase.h says what each is. SQLite's results.
/// @{
int RegisterWordTokenizer(fts5_api& fts5);  ///< "archive": BreakWords
/// `mustEnd`, which lives as long as the connection, ends the query when it says so.
int RegisterRelevance(fts5_api& fts5, const std::function<bool()>& mustEnd);
int RegisterExcerpt(sqlite3* connection);
int RegisterFolders(sqlite3* connection);  ///< folder_of and is_below
/// @}

}  // namespace quorbel
