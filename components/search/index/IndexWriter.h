#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "components/search/index/IndexDatabase.h"
#include "components/search/text/TextExtractor.h"
#include "platform/FileDescriptor.h"

namespace quorbel {

/// What tells versions of a file apart.
struct CDocumentStamp {
    std::int64_t size = 0;      ///< bytes
    std::int64_t modified = 0;  ///< nanoseconds since 1970
    std::int64_t changed = 0;   ///< nanoseconds since 1970, attributes included
    std::int64_t inode = 0;
    bool operator==(const CDocumentStamp&) const = default;
};

/// A folder of the index; valid until it is removed.
using FolderId = std::int64_t;

/// What the index knows of a file.
struct CKnownFile {
    CDocumentStamp stamp;
    bool isPending = false;  ///< its text is still to be read
};

/// Changes the index, in transactions: what is done after Begin is seen by others, whole, after Commit. A
/// failure of anything in between makes Commit fail with it, and nothing has happened. One thread at a time.
class CIndexWriter {
 public:
    /// Makes the index when there is none. Busy while another writer has it open.
    static CResult<std::unique_ptr<CIndexWriter>> Open(const std::string& folder);
    /// Some writer, of this process or another, has the index open.
    static bool IsOpenSomewhere(const std::string& folder);

    ErrorCode Begin() { return m_index->Statements().Begin(); }
    ErrorCode Commit() { return m_index->Statements().Commit(); }
    void Rollback() noexcept { m_index->Statements().Rollback(); }

    /// The folder of a path (absolute, without last "/"), made when it is new.
    CResult<FolderId> Folder(const std::string& path);
    /// The folder of a path; 0 when it is not known.
    CResult<FolderId> KnownFolder(const std::string& path);
    /// Gives a folder and all below it another path. What was there already is removed; neither lies in the
    /// other.
    ErrorCode MoveFolder(const std::string& from, const std::string& to);
    /// Removes a folder with all below it.
    ErrorCode RemoveFolder(const std::string& path);
    /// Removes the folders right below this one, with all below them, but for those of these names.
    ErrorCode RemoveFoldersBut(const std::string& path, const std::set<std::string>& names);
    /// The paths of all folders, in ordinal order.
    CResult<std::vector<std::string>> Folders();

    /// The files of a folder, those that were skipped included, by name.
    CResult<std::map<std::string, CKnownFile, std::less<>>> Files(FolderId folder);
    CResult<std::optional<CKnownFile>> File(FolderId folder, const std::string& name);

    enum class TextState { Known, Pending };
    /// Takes in a file, in place of what was known of it. `name` is valid UTF-8.
    ErrorCode Put(FolderId folder, const std::string& name, const CDocumentStamp& stamp,
                  const CExtractedText& text, TextState state = TextState::Known);
    /// Takes in a file whose text is still to be read; what was known of it stays until then.
    ErrorCode PutPending(FolderId folder, const std::string& name, const CDocumentStamp& stamp);
    /// The documents of a folder and all below it whose text is still to be read.
    struct CPendingFile {
        std::string folder;  ///< path
        std::string name;
        CDocumentStamp stamp;
    };
    CResult<std::vector<CPendingFile>> PendingBelow(const std::string& path);
    /// Gives a document another place and stamp; its text is not read anew. False when there is no such
    /// document.
    CResult<bool> Move(FolderId from, const std::string& name, FolderId to, const std::string& newName,
                       const CDocumentStamp& stamp);
    /// Notes why a file is no document; the name may be any bytes.
    ErrorCode Skip(FolderId folder, const std::string& name, const CDocumentStamp& stamp,
                   std::string_view reason);
    ErrorCode Remove(FolderId folder, const std::string& name);

    /// Forgets everything.
    ErrorCode Clear();
    /// Notes a fact for those who look at the index.
    ErrorCode SetFact(std::string_view name, std::string_view value);
    /// Counts up with everything that is changed.
    int CountChanges() const noexcept { return ::sqlite3_total_changes(m_index->Handle()); }

 private:
    CIndexWriter(CFileDescriptor lock, std::unique_ptr<CIndexDatabase> index) noexcept
        : m_lock(std::move(lock)), m_index(std::move(index)) {}
    struct CStored;
    CResult<CStored> Find(FolderId folder, const std::string& name);
    ErrorCode Add(FolderId folder, const std::string& name, const CStored& document);
    ErrorCode Remove(const std::string& name, const CStored& document);
    CResult<std::int64_t> NextNumber(FolderId folder);
    CDatabase& Statements() noexcept { return m_index->Statements(); }

    const CFileDescriptor m_lock;  // held as long as it is open
    const std::unique_ptr<CIndexDatabase> m_index;
};

/// What is known as a document's kind, by the name's extension.
std::string_view KindOf(std::string_view extension);
/// The extension of a file's name, with its ".", in lower case; empty for none.
std::string ExtensionOf(std::string_view name);

}  // namespace quorbel
