#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <random>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "components/search/SearchIndex.h"
#include "components/search/index/IndexDatabase.h"
#include "platform/Text.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

namespace fs = std::filesystem;

std::set<std::string> Dump(CDatabase& index, const char* sql) {
    std::set<std::string> rows;
    CStatement found = index.Use(sql);
    for (CResult<bool> row = found.Step(); row.IsOk() && row.Value(); row = found.Step()) {
        rows.emplace(found.Bytes(0));
    }
    return rows;
}

/// All that an index says, but for the numbers of its documents.
struct CContent {
    std::set<std::string> documents;
    std::set<std::string> words;
    std::set<std::string> sound;
    ErrorCode error = ErrorCode::Success;  ///< of opening it

    explicit CContent(const fs::path& folder) {
        const auto index = CIndexDatabase::Open(folder, CIndexDatabase::Access::Read);
        error = index.Error();
        if (!index.IsOk()) return;
        CDatabase& database = index.Value()->Statements();
        documents =
            Dump(database,
                 "SELECT f.path || '/' || d.name || '|' || d.kind || '|' || d.size || '|' || d.modified || "
                 "'|' || ifnull(d.title, '-') || '|' || d.pending || '|' || ifnull(t.text, '-') "
                 "FROM documents d JOIN folders f ON f.id = d.folder LEFT JOIN texts t ON t.id = d.id");
        EXPECT_EQ(
            database.Execute("CREATE VIRTUAL TABLE temp.instances USING fts5vocab(main, words, instance)"),
            ErrorCode::Success);
        words =
            Dump(database,
                 "SELECT i.term || '|' || i.col || '|' || i.offset || '|' || ifnull(f.path || '/' || d.name, "
                 "'nowhere') FROM temp.instances i LEFT JOIN documents d ON d.id = i.doc "
                 "LEFT JOIN folders f ON f.id = d.folder");
        sound = Dump(database, "PRAGMA integrity_check");
    }
};

class KilledIndex : public testing::Test {
 protected:
    fs::path Docs() const { return m_folder / "docs"; }

    std::unique_ptr<ISearchIndex> Start(const fs::path& folder) const {
        auto index = ISearchIndex::Start({folder, {}, SystemClock(), [](const std::wstring&) {}}).Value();
        index->Publish({FromUtf8(Docs().native())});
        return index;
    }
    /// A process that follows the documents until it is killed.
    pid_t StartProcess() const {
        const pid_t process = ::fork();
        if (process == 0) {
            const auto index = Start(m_folder / "killed");
            for (;;) ::pause();
        }
        return process;
    }
    std::uintmax_t WrittenBytes() const {
        std::error_code missing;
        const auto size = fs::file_size(m_folder / "killed" / "index.db-wal", missing);
        return missing ? 0 : size;
    }
    std::string RandomText() {
        std::string text;
        for (int count = 5 + static_cast<int>(m_random() % 300); count != 0; --count) {
            text += "word" + std::to_string(m_random() % 500) + ' ';
        }
        return text;
    }
    /// Writes, renames or removes some file or folder.
    void Change() {
        const fs::path folder = Docs() / ("folder" + std::to_string(m_random() % 6));
        const fs::path file = folder / ("file" + std::to_string(m_random() % 30) + ".txt");
        std::error_code ignored;
        switch (m_random() % 8) {
            case 0: fs::remove(file, ignored); break;
            case 1:
                fs::rename(file, folder / ("renamed" + std::to_string(m_random() % 9) + ".txt"), ignored);
                break;
            case 2: fs::rename(folder, Docs() / ("folder" + std::to_string(m_random() % 6)), ignored); break;
            case 3: fs::rename(folder, Docs() / ("moved" + std::to_string(m_random() % 3)), ignored); break;
            default: WriteFile(file, RandomText());
        }
    }

    const CTemporaryFolder m_folder;
    std::mt19937 m_random{20'261'123};
};

TEST_F(KilledIndex, OpensIsSoundAndEndsEqualToAFreshOne) {
    const char* const wanted = std::getenv("QUORBEL_KILLS");
    const int kills = wanted ? std::atoi(wanted) : 24;
    for (int count = 0; count != 100; ++count) Change();
    bool wasMade = false;
    for (int kill = 0; kill != kills; ++kill) {
        const pid_t process = StartProcess();
        ASSERT_GT(process, 0);
        // Killed at its start, after some writing, or when there is nothing left to do.
        const auto enough = m_random() % 300'000;
        for (int count = 0; count != 200 && WrittenBytes() < enough; ++count) {
            if (count % 10 == 0) Change();
            std::this_thread::yield();
        }
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
        const CContent left(m_folder / "killed");
        // Before its first commit it is not there, no index yet, or waits for its next writer (AccessDenied).
        const bool isYoung = left.error != ErrorCode::Success && left.error != ErrorCode::Busy;
        ASSERT_TRUE(left.error == ErrorCode::Success || (isYoung && !wasMade))
            << kill << ": " << ToNumber(left.error);
        wasMade = wasMade || !isYoung;
        if (!isYoung) {
            ASSERT_THAT(left.sound, testing::ElementsAre("ok")) << kill;
        }
        for (const std::string& word : left.words) ASSERT_EQ(word.find("nowhere"), word.npos) << kill << word;
    }
    const auto fresh = Start(m_folder / "fresh");
    const auto killed = Start(m_folder / "killed");
    std::size_t files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(Docs()))
        files += entry.is_regular_file() ? 1 : 0;
    for (;;) {
        const CContent expected(m_folder / "fresh");
        const CContent found(m_folder / "killed");
        const bool isDone = expected.documents.size() == files && expected.documents == found.documents;
        if (!isDone) continue;
        EXPECT_EQ(found.words, expected.words);
        EXPECT_FALSE(found.words.empty());
        EXPECT_THAT(found.sound, testing::ElementsAre("ok"));
        return;
    }
}

}  // namespace
}  // namespace quorbel
