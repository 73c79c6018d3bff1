#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/Error.h"

struct sqlite3;

namespace quorbel {

/// A connection to the index, one SQLite file. Its tables:
///
///     folders(id, path UNIQUE, next)   path: absolute, UTF-8, without last "/" ("" is the root)
///     documents(id, folder, name, extension, kind, size, modified, changed, inode, title, author, problem)
///         id: see CDocumentId; UNIQUE(folder, name); extension: lower case with its "." or ""; kind:
///         "document", "picture", "music", "video", "program", "archive", "email", "other" ...; size: bytes;
///         modified, changed: nanoseconds since 1970; inode: what tells versions apart with the rest; title
///         and author: NULL for none; problem: why its text was not read, NULL when it was or when its format
///         has none
///     texts(id, text)                  UTF-8; only for documents that have text
///     words(content, title, author, name)  FTS5, contentless; rowid: documents.id
///     skipped(folder, name, reason)    files without a document
///     facts(name, value)               version, when the last complete look was had, ...
///
/// and its functions, beside SQLite's own:
///
///     relevance(words)    auxiliary function of a MATCH on words: BM25, a number above 0, larger is better
///     folder_of(id)       the folder's row of a document's number
///     excerpt(text, query, characters)  the part of the text with most of the query's words, about so many
///     characters, words
///                         of the query between U+0002 and U+0003; query: an FTS5 expression
///     collation FOLDED    compares texts without regard to case
///
/// One thread at a time.
class CIndexDatabase {
 public:
    enum class Access { Read, Write };

    /// Opens the index in a folder. With Write it is made when it is not there, or is damaged or of another
    /// version. With Read FileNotFound when there is none yet.
    static CResult<std::unique_ptr<CIndexDatabase>> Open(const std::string& folder, Access access);
    ~CIndexDatabase();
    CIndexDatabase(const CIndexDatabase&) = delete;
    CIndexDatabase& operator=(const CIndexDatabase&) = delete;

    sqlite3* Handle() const noexcept { return m_handle; }

 private:
    explicit CIndexDatabase(sqlite3* handle) noexcept : m_handle(handle) {}
    sqlite3* m_handle;
};

}  // namespace quorbel
