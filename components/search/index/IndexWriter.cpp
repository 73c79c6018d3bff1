#include "components/search/index/IndexWriter.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "components/search/index/DocumentId.h"
#include "components/search/index/WordBreaker.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

constexpr const char* kLockFile = "/writer.lock";

std::uint64_t CountWords(std::string_view text) {
    std::uint64_t count = 0;
    BreakWords(text, [&count](std::string_view, std::size_t, std::size_t) {
        ++count;
        return true;
    });
    return count;
}

/// The first text that is behind all texts that begin with this folder's path and "/".
std::string BehindAllIn(const std::string& path) {
    return path + static_cast<char>('/' + 1);
}

}  // namespace

/// A document as it stands in the tables.
struct CIndexWriter::CStored {
    std::int64_t row = -1;  ///< -1 for none
    CDocumentStamp stamp;
    CExtractedText text;
    TextState state = TextState::Known;
};

CResult<std::unique_ptr<CIndexWriter>> CIndexWriter::Open(const std::string& folder) {
    if (::mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) return ErrorFromErrno(errno);
    CFileDescriptor lock(
        ::open((folder + kLockFile).c_str(), O_CREAT | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!lock.IsOpen()) return ErrorFromErrno(errno);
    if (::flock(lock.Get(), LOCK_EX | LOCK_NB) != 0)
        return errno == EWOULDBLOCK ? ErrorCode::Busy : ErrorFromErrno(errno);
    auto index = CIndexDatabase::Open(folder, CIndexDatabase::Access::Write);
    if (!index.IsOk()) return index.Error();
    return std::unique_ptr<CIndexWriter>(new CIndexWriter(std::move(lock), std::move(index).Value()));
}

bool CIndexWriter::IsOpenSomewhere(const std::string& folder) {
    const CFileDescriptor lock(::open((folder + kLockFile).c_str(), O_RDONLY | O_CLOEXEC));
    return lock.IsOpen() && ::flock(lock.Get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

CResult<FolderId> CIndexWriter::KnownFolder(const std::string& path) {
    return Statements().Number("SELECT id FROM folders WHERE path = ?", path);
}

CResult<FolderId> CIndexWriter::Folder(const std::string& path) {
    const auto known = KnownFolder(path);
    if (!known.IsOk() || known.Value() != 0) return known;
    const ErrorCode error = Statements().Use("INSERT INTO folders(path) VALUES(?)", path).Run();
    if (error != ErrorCode::Success) return error;
    const FolderId made = ::sqlite3_last_insert_rowid(m_index->Handle());
    if (made >= CDocumentId::kMostFolders) return ErrorCode::NoSystemResources;
    return made;
}

ErrorCode CIndexWriter::MoveFolder(const std::string& from, const std::string& to) {
    ErrorCode error = RemoveFolder(to);
    if (error != ErrorCode::Success) return error;
    return Statements()
        .Use(
            "UPDATE folders SET path = ?1 || substr(path, length(?2) + 1) "
            "WHERE path = ?2 OR (path > ?2 || '/' AND path < ?3)",
            to, from, BehindAllIn(from))
        .Run();
}

ErrorCode CIndexWriter::RemoveFolder(const std::string& path) {
    std::vector<FolderId> folders;
    {
        CStatement below =
            Statements().Use("SELECT id FROM folders WHERE path = ?1 OR (path > ?1 || '/' AND path < ?2)",
                             path, BehindAllIn(path));
        for (CResult<bool> row = below.Step(); !row.IsOk() || row.Value(); row = below.Step()) {
            if (!row.IsOk()) return row.Error();
            folders.push_back(below.Integer(0));
        }
    }
    for (const FolderId folder : folders) {
        const auto files = Files(folder);
        if (!files.IsOk()) return files.Error();
        for (const auto& [name, file] : files.Value()) {
            const ErrorCode error = Remove(folder, name);
            if (error != ErrorCode::Success) return error;
        }
        const ErrorCode error = Statements().Use("DELETE FROM folders WHERE id = ?", folder).Run();
        if (error != ErrorCode::Success) return error;
    }
    return ErrorCode::Success;
}

ErrorCode CIndexWriter::RemoveFoldersBut(const std::string& path, const std::set<std::string>& names) {
    std::set<std::string> foreign;
    {
        CStatement below = Statements().Use("SELECT path FROM folders WHERE path > ?1 || '/' AND path < ?2",
                                            path, BehindAllIn(path));
        for (CResult<bool> row = below.Step(); !row.IsOk() || row.Value(); row = below.Step()) {
            if (!row.IsOk()) return row.Error();
            const std::string_view rest = below.Bytes(0).substr(path.size() + 1);
            std::string name(rest.substr(0, rest.find('/')));
            if (!names.contains(name)) foreign.insert(std::move(name));
        }
    }
    for (const std::string& name : foreign) {
        const ErrorCode error = RemoveFolder(path + "/" + name);
        if (error != ErrorCode::Success) return error;
    }
    return ErrorCode::Success;
}

CResult<std::vector<std::string>> CIndexWriter::Folders() {
    std::vector<std::string> paths;
    CStatement folders = Statements().Use("SELECT path FROM folders ORDER BY path");
    for (CResult<bool> row = folders.Step(); !row.IsOk() || row.Value(); row = folders.Step()) {
        if (!row.IsOk()) return row.Error();
        paths.emplace_back(folders.Bytes(0));
    }
    return paths;
}

CResult<std::map<std::string, CKnownFile, std::less<>>> CIndexWriter::Files(FolderId folder) {
    std::map<std::string, CKnownFile, std::less<>> files;
    CStatement known = Statements().Use(
        "SELECT name, size, modified, changed, inode, pending FROM documents WHERE folder = ?1 "
        "UNION ALL SELECT name, size, modified, changed, inode, 0 FROM skipped WHERE folder = ?1",
        folder);
    for (CResult<bool> row = known.Step(); !row.IsOk() || row.Value(); row = known.Step()) {
        if (!row.IsOk()) return row.Error();
        files[std::string(known.Bytes(0))] = {
            {known.Integer(1), known.Integer(2), known.Integer(3), known.Integer(4)}, known.Integer(5) != 0};
    }
    return files;
}

CResult<std::optional<CKnownFile>> CIndexWriter::File(FolderId folder, const std::string& name) {
    CStatement known = Statements().Use(
        "SELECT size, modified, changed, inode, pending FROM documents WHERE folder = ?1 AND name = ?2 "
        "UNION ALL SELECT size, modified, changed, inode, 0 FROM skipped WHERE folder = ?1 AND name = ?3",
        folder, name, CBlob{name});
    const CResult<bool> row = known.Step();
    if (!row.IsOk()) return row.Error();
    if (!row.Value()) return std::optional<CKnownFile>();
    return std::optional(CKnownFile{{known.Integer(0), known.Integer(1), known.Integer(2), known.Integer(3)},
                                    known.Integer(4) != 0});
}

CResult<CIndexWriter::CStored> CIndexWriter::Find(FolderId folder, const std::string& name) {
    CStored document;
    CStatement found = Statements().Use(
        "SELECT d.id, d.size, d.modified, d.changed, d.inode, d.title, d.author, d.problem, d.pending, "
        "t.text "
        "FROM documents d LEFT JOIN texts t ON t.id = d.id WHERE d.folder = ? AND d.name = ?",
        folder, name);
    const CResult<bool> row = found.Step();
    if (!row.IsOk()) return row.Error();
    if (!row.Value()) return document;
    document.row = found.Integer(0);
    document.stamp = {found.Integer(1), found.Integer(2), found.Integer(3), found.Integer(4)};
    document.text.title = found.Bytes(5);
    document.text.author = found.Bytes(6);
    document.text.problem = found.Bytes(7);
    document.state = found.Integer(8) != 0 ? TextState::Pending : TextState::Known;
    document.text.text = found.Bytes(9);
    return document;
}

CResult<std::int64_t> CIndexWriter::NextNumber(FolderId folder) {
    const auto next =
        Statements().Number("UPDATE folders SET next = next + 1 WHERE id = ? RETURNING next", folder);
    if (next.IsOk() && next.Value() == 0) return ErrorCode::NotFound;  // there is no such folder
    if (next.IsOk() && next.Value() >= CDocumentId::kMostNumbers) return ErrorCode::NoSystemResources;
    return next;
}

ErrorCode CIndexWriter::Add(FolderId folder, const std::string& name, const CStored& document) {
    const auto number = NextNumber(folder);
    if (!number.IsOk()) return number.Error();
    const CExtractedText& text = document.text;
    const std::int64_t row = CDocumentId{folder, number.Value(), LengthClassOf(CountWords(text.text))}.Row();
    const std::string extension = ExtensionOf(name);
    ErrorCode error =
        Statements()
            .Use(
                "INSERT INTO documents VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, nullif(?, ''), "
                "nullif(?, ''), nullif(?, ''), ?)",
                row, folder, name, extension, KindOf(extension), document.stamp.size, document.stamp.modified,
                document.stamp.changed, document.stamp.inode, text.title, text.author, text.problem,
                std::int64_t{document.state == TextState::Pending})
            .Run();
    if (error == ErrorCode::Success && !text.text.empty()) {
        error = Statements().Use("INSERT INTO texts VALUES(?, ?)", row, text.text).Run();
    }
    if (error != ErrorCode::Success) return error;
    return Statements()
        .Use("INSERT INTO words(rowid, content, title, author, name) VALUES(?, ?, ?, ?, ?)", row, text.text,
             text.title, text.author, name)
        .Run();
}

ErrorCode CIndexWriter::Remove(const std::string& name, const CStored& document) {
    // The words are taken out by what they were made of.
    ErrorCode error =
        Statements()
            .Use(
                "INSERT INTO words(words, rowid, content, title, author, name) "
                "VALUES('delete', ?, ?, ?, ?, ?)",
                document.row, document.text.text, document.text.title, document.text.author, name)
            .Run();
    if (error == ErrorCode::Success) {
        error = Statements().Use("DELETE FROM texts WHERE id = ?", document.row).Run();
    }
    if (error != ErrorCode::Success) return error;
    return Statements().Use("DELETE FROM documents WHERE id = ?", document.row).Run();
}

ErrorCode CIndexWriter::Put(FolderId folder, const std::string& name, const CDocumentStamp& stamp,
                            const CExtractedText& text, TextState state) {
    const ErrorCode error = Remove(folder, name);
    if (error != ErrorCode::Success) return error;
    return Add(folder, name, {-1, stamp, text, state});
}

ErrorCode CIndexWriter::PutPending(FolderId folder, const std::string& name, const CDocumentStamp& stamp) {
    const auto document = Find(folder, name);
    if (!document.IsOk()) return document.Error();
    if (document.Value().row < 0) return Put(folder, name, stamp, {}, TextState::Pending);
    return Statements()
        .Use("UPDATE documents SET size = ?, modified = ?, changed = ?, inode = ?, pending = 1 WHERE id = ?",
             stamp.size, stamp.modified, stamp.changed, stamp.inode, document.Value().row)
        .Run();
}

CResult<std::vector<CIndexWriter::CPendingFile>> CIndexWriter::PendingBelow(const std::string& path) {
    std::vector<CPendingFile> files;
    CStatement pending = Statements().Use(
        "SELECT f.path, d.name, d.size, d.modified, d.changed, d.inode FROM documents d "
        "JOIN folders f ON f.id = d.folder "
        "WHERE d.pending AND (f.path = ?1 OR (f.path > ?1 || '/' AND f.path < ?2))",
        path, BehindAllIn(path));
    for (CResult<bool> row = pending.Step(); !row.IsOk() || row.Value(); row = pending.Step()) {
        if (!row.IsOk()) return row.Error();
        files.push_back({std::string(pending.Bytes(0)),
                         std::string(pending.Bytes(1)),
                         {pending.Integer(2), pending.Integer(3), pending.Integer(4), pending.Integer(5)}});
    }
    return files;
}

CResult<bool> CIndexWriter::Move(FolderId from, const std::string& name, FolderId to,
                                 const std::string& newName, const CDocumentStamp& stamp) {
    auto document = Find(from, name);
    if (!document.IsOk()) return document.Error();
    if (document.Value().row < 0) return false;
    document.Value().stamp = stamp;
    ErrorCode error = Remove(name, document.Value());
    if (error == ErrorCode::Success) error = Remove(to, newName);
    if (error == ErrorCode::Success) error = Add(to, newName, document.Value());
    if (error != ErrorCode::Success) return error;
    return true;
}

ErrorCode CIndexWriter::Skip(FolderId folder, const std::string& name, const CDocumentStamp& stamp,
                             std::string_view reason) {
    const ErrorCode error = Remove(folder, name);
    if (error != ErrorCode::Success) return error;
    return Statements()
        .Use("INSERT INTO skipped VALUES(?, ?, ?, ?, ?, ?, ?)", folder, CBlob{name}, stamp.size,
             stamp.modified, stamp.changed, stamp.inode, reason)
        .Run();
}

ErrorCode CIndexWriter::Remove(FolderId folder, const std::string& name) {
    const auto document = Find(folder, name);
    if (!document.IsOk()) return document.Error();
    if (document.Value().row >= 0) return Remove(name, document.Value());
    return Statements().Use("DELETE FROM skipped WHERE folder = ? AND name = ?", folder, CBlob{name}).Run();
}

ErrorCode CIndexWriter::Clear() {
    for (const char* statement :
         {"INSERT INTO words(words) VALUES('delete-all')", "DELETE FROM texts", "DELETE FROM documents",
          "DELETE FROM skipped", "DELETE FROM folders", "DELETE FROM facts"}) {
        const ErrorCode error = Statements().Use(statement).Run();
        if (error != ErrorCode::Success) return error;
    }
    return ErrorCode::Success;
}

ErrorCode CIndexWriter::SetFact(std::string_view name, std::string_view value) {
    return Statements().Use("INSERT OR REPLACE INTO facts VALUES(?, ?)", name, value).Run();
}

}  // namespace quorbel
