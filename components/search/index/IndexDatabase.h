#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/sqlite/Database.h"

namespace quorbel {

/// A connection to the index, one SQLite file. Its tables:
///
///     folders(id, path, next)      path: absolute, UTF-8, without last "/" ("" is the root), unique
///     documents(id, folder, name, extension, kind, size, modified, changed, inode, title, author, problem,
///               pending)           id: see CDocumentId; (folder, name) is unique; extension: in lower case
///                                  with its ".", or ""; kind: see KindOf; size: bytes; modified, changed:
///                                  nanoseconds since 1970; title, author: NULL for none; problem: why its
///                                  text was not read, NULL when it was or when it has none; pending: 1 while
///                                  its text is still to be read
///     texts(id, text)              UTF-8, of documents that have text
///     words(content, title, author, name)   FTS5 without content of its own; rowid: documents.id
///     skipped(folder, name, size, modified, changed, inode, reason)   files that are no documents
///     facts(name, value)           "state": what the index is doing, for people
///
/// Its functions, beside SQLite's own:
///
///     relevance(words)    of a MATCH: BM25, above 0, larger is better
///     folder_of(id)       the folder of a document's number
///     is_below(folder, path)   the folder is the one of this path, "" being the root, or lies below it
///     excerpt(id, query, characters)   about so many characters of the document's text, those with most of
///                         the query's words; these stand between U+0002 and U+0003. NULL without text.
///                         query: the phrases of an FTS5 expression, in double quotes, "*" behind prefixes
///     collation FOLDED    compares texts without regard to case
///
/// One thread at a time.
class CIndexDatabase {
 public:
    enum class Access { Read, Write };

    /// Opens the index in a folder. With Write it is made when it is not there, or is damaged or of another
    /// version; there is one writer at a time. With Read FileNotFound when there is none. Damage is
    /// InvalidData.
    static CResult<std::unique_ptr<CIndexDatabase>> Open(const std::string& folder, Access access);

    /// The index's file in its folder.
    static std::string FileIn(const std::string& folder);

    /// Queries of the connection end with SQLITE_INTERRUPT when this says so; it is asked now and then while
    /// words are found and weighed.
    void EndWhen(std::function<bool()> mustEnd) { *m_mustEnd = std::move(mustEnd); }
    /// Deletes the index, which nobody of this process has open.
    static ErrorCode Remove(const std::string& folder);

    CDatabase& Statements() noexcept { return *m_database; }
    sqlite3* Handle() const noexcept { return m_database->Handle(); }

 private:
    using MustEnd = std::unique_ptr<std::function<bool()>>;
    struct CConnection;
    static CResult<CConnection> Connect(const std::string& file, Access access);
    static CResult<CConnection> ConnectToIndex(const std::string& file, Access access);
    static CResult<CConnection> Make(const std::string& folder);
    CIndexDatabase(MustEnd mustEnd, std::unique_ptr<CDatabase> database) noexcept
        : m_mustEnd(std::move(mustEnd)), m_database(std::move(database)) {}

    const MustEnd m_mustEnd;
    const std::unique_ptr<CDatabase> m_database;
};

}  // namespace quorbel
