#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "components/search/follow/FolderTree.h"
#include "components/search/follow/NameQueue.h"
#include "components/search/follow/TextReader.h"
#include "components/search/index/IndexWriter.h"
#include "platform/Clock.h"

namespace quorbel {

/// Keeps the index equal to the files of the folders that it follows. What happens to a name makes that name
/// be looked at again, whatever it was, so that events may come late, twice or in any order; what is there
/// now is what counts. New folders are watched before they are read.
///
/// Changes that were told go first; files of folders that are read for the first time are taken in whenever
/// there is nothing else. Files of formats that need the worker are found by their names at once and by
/// their texts when these have been read. One thread.
class CIndexer {
 public:
    /// `texts` outlives the indexer. The folder that the index's folder lies in is never indexed.
    static CResult<std::unique_ptr<CIndexer>> Create(const std::string& indexFolder, CTextReader& texts,
                                                     IClock& clock);

    /// These top folders, absolute paths without last "/", in place of those before.
    void SetTops(std::vector<std::string> paths);
    /// Looks at everything again.
    void LookAtAll();
    /// Forgets the whole index and makes it anew.
    ErrorCode Rebuild();

    /// Does a part of what there is to do, a tenth of a second at most but for large files. After a failure,
    /// a full disk say, all is to be looked at again.
    ErrorCode Step();
    /// There is more to do right now.
    bool IsBusy() const noexcept;
    /// How long to wait, at most, for changes that nobody tells.
    std::chrono::milliseconds UntilNextLook() const;
    /// Readable when changes have been told.
    int Descriptor() const noexcept { return m_tree->Descriptor(); }

 private:
    CIndexer(std::unique_ptr<CIndexWriter> writer, std::unique_ptr<CFolderTree> tree, CTextReader& texts,
             IClock& clock)
        : m_writer(std::move(writer)), m_tree(std::move(tree)), m_texts(texts), m_clock(clock) {}

    struct CMove {
        CFolderNode* from;
        std::string fromName;
        CFolderNode* to;
        std::string toName;
    };
    using Status = std::optional<struct stat>;

    bool HasTimeLeft() const;
    ErrorCode Work();
    void TakeChanges();
    void TakeTexts();
    void PollUnwatched();
    void RemoveForeignFolders();
    void ReadFolder(CFolderNode& folder);
    void ReadEntries(CFolderNode& folder, int descriptor);
    void ReadEntry(CFolderNode& folder, int descriptor, const std::string& name,
                   std::map<std::string, CKnownFile, std::less<>>& known, std::set<std::string>& folders);
    void FolderIsGone(CFolderNode& folder);
    void Follow(CFolderNode& parent, const std::string& name, const CFolderIdentity& identity);
    void Forget(CFolderNode& folder);
    void Remove(CFolderNode& folder);
    void Apply(const CMove& move);
    void MoveFolder(CFolderNode& folder, CFolderNode& parent, const std::string& name);
    void Look(CFolderNode& folder, const std::string& name);
    void TakeIn(CFolderNode& folder, const std::string& name, const struct stat& status);
    void PutOrSkip(CFolderNode& folder, const std::string& name, const struct stat& status);
    CExtractedText ReadText(const std::string& path, const CDocumentStamp& stamp) const;
    ErrorCode NoteState();

    const std::unique_ptr<CIndexWriter> m_writer;
    const std::unique_ptr<CFolderTree> m_tree;
    CTextReader& m_texts;
    IClock& m_clock;

    CFolderIdentity m_ownFolder;
    std::vector<std::string> m_tops;
    std::set<CFolderNode*> m_toRead;     // folders
    std::set<CFolderNode*> m_unwatched;  // are read again from time to time
    CNameQueue m_told;                   // names that something happened to
    CNameQueue m_found;                  // names that were found new or changed when their folder was read
    std::vector<CMove> m_moves;
    bool m_removesForeign = false;  // folders that are not below a top are to be removed
    std::string m_state;            // as it was noted
    int m_changes = 0;              // of the index, when they were noted
    std::chrono::nanoseconds m_lastPoll{};
    unsigned m_polls = 0;
    std::chrono::nanoseconds m_stepEnd{};
};

}  // namespace quorbel
