#pragma once

#include <sqlite3.h>

namespace quorbel {

/// What a connection to the index adds to SQLite; IndexDatabase.h says what each is. SQLite's results.
/// @{
int RegisterWordTokenizer(fts5_api& fts5);  ///< "archive": BreakWords
int RegisterRelevance(fts5_api& fts5);
int RegisterExcerpt(sqlite3* connection);
/// @}

}  // namespace quorbel
