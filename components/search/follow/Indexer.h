#pragma once

#include <chrono>
#include <deque>
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
    /// `texts` outlives the indexer. The folders of the service's own files beside the index's are never
    /// indexed.
    static CResult<std::unique_ptr<CIndexer>> Create(const std::string& indexFolder, CTextReader& texts,
                                                     IClock& clock);

    /// These top folders, absolute paths without last "/", in place of those before.
    void SetTops(std::vector<std::string> paths);
    /// Looks at everything again.
    void LookAtAll();
    /// Forgets the whole index and makes it anew.
    ErrorCode Rebuild();

    /// Does a part of what there is to do: about a tenth of a second, but a large file, or a folder with very
    /// many files that is read or removed, is one piece. After a failure, a full disk say, all is looked at
    /// again.
    ErrorCode Step();
    /// There is more to do right now.
    bool IsBusy() const noexcept;
    /// How long to wait, at most, for changes that nobody tells.
    std::chrono::milliseconds UntilNextLook() const;
    /// Readable when changes have been told.
    int Descriptor() const noexcept { return m_tree->Descriptor(); }

 private:
    /// More than a step of the clock by which file systems stamp files.
    static constexpr std::chrono::milliseconds kTimeStep{10};

    CIndexer(std::unique_ptr<CIndexWriter> writer, std::unique_ptr<CFolderTree> tree, CTextReader& texts,
             IClock& clock)
        : m_writer(std::move(writer)), m_tree(std::move(tree)), m_texts(texts), m_clock(clock) {}

    enum class Urgency {
        Told,  ///< somebody has just changed it
        Found  ///< it was new or changed when its folder was read
    };
    static CTextReader::Place PlaceOf(Urgency urgency) noexcept {
        return urgency == Urgency::Told ? CTextReader::Place::First : CTextReader::Place::Last;
    }
    struct CMove {
        CFolderNode* from;
        std::string fromName;
        CFolderNode* to;
        std::string toName;
    };

    ErrorCode Work();
    bool DoOne();
    void ChooseTops();
    void Poll();
    void TakeChanges();
    void TakeTexts();
    void RemoveForeignFolders();
    void ReadFolder(CFolderNode& folder);
    void ReadEntries(CFolderNode& folder, int descriptor);
    void ReadEntry(CFolderNode& folder, int descriptor, const std::string& name,
                   std::map<std::string, CKnownFile, std::less<>>& known, std::set<std::string>& folders);
    void RemoveFoldersBut(CFolderNode& folder, std::set<std::string> names);
    void CannotRead(CFolderNode& folder, int error);
    void Follow(CFolderNode& parent, const std::string& name, const CFolderIdentity& identity);
    void Forget(CFolderNode& folder);
    void Remove(CFolderNode& folder);
    void Apply(const CMove& move);
    void MoveFolder(CFolderNode& folder, CFolderNode& parent, const std::string& name);
    void Look(CFolderNode& folder, const std::string& name, Urgency urgency);
    bool HasJustChanged(const struct stat& status) const;
    void PutOrSkip(CFolderNode& folder, const std::string& name, const struct stat& status, Urgency urgency);
    void TakeIn(CFolderNode& folder, const std::string& name, const CDocumentStamp& stamp, Urgency urgency);
    /// None when it cannot be read right now.
    std::optional<CExtractedText> ReadText(const std::string& path, const CDocumentStamp& stamp) const;
    ErrorCode NoteState();

    const std::unique_ptr<CIndexWriter> m_writer;
    const std::unique_ptr<CFolderTree> m_tree;
    CTextReader& m_texts;
    IClock& m_clock;

    std::vector<CFolderIdentity> m_ownFolders;  // of the service: never indexed
    std::vector<std::string> m_published;       // sorted
    std::vector<std::string> m_tops;            // those of them that no other one reaches
    bool m_hasTops = false;
    std::set<CFolderNode*> m_toRead;     // folders
    std::set<CFolderNode*> m_unwatched;  // are read again from time to time
    CNameQueue m_told;                   // names that something happened to
    CNameQueue m_found;                  // names that were found new or changed when their folder was read
    CNameQueue m_soon;                   // told, but too fresh to be read
    CNameQueue m_later;                  // could not be read: at the next poll
    std::deque<CMove> m_moves;
    bool m_removesForeign = false;  // folders that are not below a top are to be removed
    std::string m_state;            // as it was noted
    int m_changes = 0;              // of the index, when they were noted
    std::chrono::nanoseconds m_lastPoll{};
    std::chrono::nanoseconds m_lastSoon{};
    unsigned m_polls = 0;
    std::chrono::nanoseconds m_stepEnd{};
};

}  // namespace quorbel
