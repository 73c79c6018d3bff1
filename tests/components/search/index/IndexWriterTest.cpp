#include <gmock/gmock.h>
#include <sys/stat.h>

#include "components/search/index/DocumentId.h"
#include "components/search/index/IndexWriter.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class IndexWriter : public testing::Test {
 protected:
    void SetUp() override { Reopen(); }
    void Reopen() {
        m_writer.reset();
        auto writer = CIndexWriter::Open(m_folder.Path());
        ASSERT_TRUE(writer.IsOk());
        m_writer = std::move(writer).Value();
    }
    void Do(const std::function<void()>& changes) {
        ASSERT_EQ(m_writer->Begin(), ErrorCode::Success);
        changes();
        ASSERT_EQ(m_writer->Commit(), ErrorCode::Success);
    }
    void Put(const std::string& folder, const std::string& name, const std::string& text,
             const std::string& title = {}) {
        const auto id = m_writer->Folder(folder);
        ASSERT_TRUE(id.IsOk());
        CExtractedText content;
        content.text = text;
        content.title = title;
        ASSERT_EQ(m_writer->Put(id.Value(), name, {static_cast<std::int64_t>(text.size()), 1, 1, 1}, content),
                  ErrorCode::Success);
    }
    /// The paths of the documents that a full-text query finds, as another connection sees them.
    std::vector<std::string> Find(const std::string& query) {
        auto index = CIndexDatabase::Open(m_folder.Path(), CIndexDatabase::Access::Read);
        EXPECT_TRUE(index.IsOk());
        std::vector<std::string> paths;
        CStatement found = index.Value()->Statements().Use(
            "SELECT f.path || '/' || d.name FROM words w JOIN documents d ON d.id = w.rowid "
            "JOIN folders f ON f.id = d.folder WHERE f.id = folder_of(d.id) AND words MATCH ? "
            "ORDER BY relevance(words) DESC, 1",
            query);
        for (CResult<bool> row = found.Step(); row.IsOk() && row.Value(); row = found.Step()) {
            paths.emplace_back(found.Bytes(0));
        }
        return paths;
    }
    bool IsSound() {
        return m_writer->Begin() == ErrorCode::Success &&
               CIndexDatabase::Open(m_folder.Path(), CIndexDatabase::Access::Read)
                       .Value()
                       ->Statements()
                       .Execute("PRAGMA integrity_check") == ErrorCode::Success &&
               m_writer->Commit() == ErrorCode::Success;
    }

    const CTemporaryFolder m_folder;
    std::unique_ptr<CIndexWriter> m_writer;
};

TEST_F(IndexWriter, MakesDocumentsFoundByWordsOfTextTitleAndName) {
    Do([&] {
        Put("/srv", "storm.txt", "The lighthouse lamp was out");
        Put("/srv/maps", "Lighthouse-plan.pdf", "Second floor", "Café terrace");
    });
    EXPECT_THAT(Find(R"("lamp")"), ElementsAre("/srv/storm.txt"));
    EXPECT_THAT(Find(R"("CAFE")"), ElementsAre("/srv/maps/Lighthouse-plan.pdf"));
    // A name says more than a text.
    EXPECT_THAT(Find(R"("lighthouse")"), ElementsAre("/srv/maps/Lighthouse-plan.pdf", "/srv/storm.txt"));
    EXPECT_THAT(Find(R"("maps")"), IsEmpty());
}

TEST_F(IndexWriter, ForgetsTheWordsOfWhatWasReplacedMovedOrRemoved) {
    Do([&] {
        Put("/srv", "a.txt", "alpha common");
        Put("/srv", "b.txt", "beta common");
        Put("/srv", "c.txt", "gamma common");
    });
    Do([&] {
        Put("/srv", "a.txt", "delta common");
        const auto from = m_writer->Folder("/srv");
        const auto to = m_writer->Folder("/new");
        const auto moved = m_writer->Move(from.Value(), "b.txt", to.Value(), "renamed.md", {1, 2, 3, 4});
        EXPECT_TRUE(moved.IsOk() && moved.Value());
        const auto nothing = m_writer->Move(from.Value(), "b.txt", to.Value(), "again", {});
        EXPECT_TRUE(nothing.IsOk() && !nothing.Value());
        EXPECT_EQ(m_writer->Remove(from.Value(), "c.txt"), ErrorCode::Success);
        EXPECT_EQ(m_writer->Remove(from.Value(), "never.txt"), ErrorCode::Success);
    });
    EXPECT_THAT(Find(R"("alpha" OR "gamma")"), IsEmpty());
    EXPECT_THAT(Find(R"("delta")"), ElementsAre("/srv/a.txt"));
    EXPECT_THAT(Find(R"("beta" AND "renamed")"), ElementsAre("/new/renamed.md"));
    EXPECT_THAT(Find(R"("common")"), testing::SizeIs(2));
    EXPECT_TRUE(IsSound());
}

TEST_F(IndexWriter, MovesAndRemovesFoldersWithAllBelow) {
    Do([&] {
        Put("/srv/old", "a.txt", "word");
        Put("/srv/old/deep/er", "b.txt", "word");
        Put("/srv/older", "c.txt", "word");
        Put("/srv/new", "gone.txt", "word");
    });
    Do([&] { EXPECT_EQ(m_writer->MoveFolder("/srv/old", "/srv/new"), ErrorCode::Success); });
    EXPECT_THAT(Find(R"("word")"), testing::UnorderedElementsAre("/srv/new/a.txt", "/srv/new/deep/er/b.txt",
                                                                 "/srv/older/c.txt"));
    Do([&] { EXPECT_EQ(m_writer->RemoveFolder("/srv/new"), ErrorCode::Success); });
    EXPECT_THAT(Find(R"("word")"), ElementsAre("/srv/older/c.txt"));
    EXPECT_THAT(m_writer->Folders().Value(), ElementsAre("/srv/older"));
    EXPECT_TRUE(IsSound());
}

TEST_F(IndexWriter, KnowsItsFilesAgainAfterReopening) {
    Do([&] {
        const auto folder = m_writer->Folder("/srv");
        CExtractedText unread;
        unread.problem = "encrypted";
        EXPECT_EQ(m_writer->Put(folder.Value(), "a.pdf", {5, 6, 7, 8}, unread), ErrorCode::Success);
        EXPECT_EQ(m_writer->Put(folder.Value(), "b.pdf", {1, 2, 3, 4}, {}, CIndexWriter::TextState::Pending),
                  ErrorCode::Success);
        EXPECT_EQ(m_writer->Skip(folder.Value(), "bad\xFF", {0, 1, 2, 3}, "name"), ErrorCode::Success);
    });
    Reopen();
    Do([&] {
        const auto files = m_writer->Files(m_writer->Folder("/srv").Value());
        ASSERT_TRUE(files.IsOk());
        ASSERT_EQ(files.Value().size(), 3U);
        EXPECT_EQ(files.Value().at("a.pdf").stamp, (CDocumentStamp{5, 6, 7, 8}));
        EXPECT_FALSE(files.Value().at("a.pdf").isPending);
        EXPECT_TRUE(files.Value().at("b.pdf").isPending);
        EXPECT_EQ(files.Value().at("bad\xFF").stamp, (CDocumentStamp{0, 1, 2, 3}));
    });
    Do([&] { EXPECT_EQ(m_writer->Clear(), ErrorCode::Success); });
    EXPECT_THAT(m_writer->Folders().Value(), IsEmpty());
    EXPECT_THAT(Find(R"("pdf")"), IsEmpty());
}

TEST_F(IndexWriter, UndoesATransactionThatIsNotCommitted) {
    Do([&] { Put("/srv", "a.txt", "alpha"); });
    ASSERT_EQ(m_writer->Begin(), ErrorCode::Success);
    Put("/srv", "b.txt", "beta");
    m_writer->Rollback();
    EXPECT_THAT(Find(R"("beta")"), IsEmpty());
    EXPECT_THAT(Find(R"("alpha")"), ElementsAre("/srv/a.txt"));
}

TEST_F(IndexWriter, ReplacesWhatIsNoIndexAndHidesItFromOthers) {
    struct stat status {};
    ASSERT_EQ(::stat((m_folder / "index.db").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    m_writer.reset();
    WriteFile(m_folder / "index.db", std::string(10'000, 'x'));
    EXPECT_EQ(CIndexDatabase::Open(m_folder.Path(), CIndexDatabase::Access::Read).Error(),
              ErrorCode::InvalidData);
    Reopen();
    Do([&] { Put("/srv", "a.txt", "alpha"); });
    EXPECT_THAT(Find(R"("alpha")"), ElementsAre("/srv/a.txt"));
    EXPECT_EQ(CIndexDatabase::Open(m_folder / "none", CIndexDatabase::Access::Read).Error(),
              ErrorCode::FileNotFound);
}

TEST(DocumentId, KeepsFolderAndLengthInOneNumber) {
    const CDocumentId id{CDocumentId::kMostFolders - 1, CDocumentId::kMostNumbers - 1, 200};
    EXPECT_GT(id.Row(), 0);
    EXPECT_EQ(CDocumentId::FolderOf(id.Row()), id.folder);
    EXPECT_EQ(CDocumentId::LengthClassOf(id.Row()), 200);
    double last = -1;
    for (std::uint64_t words = 0; words < 2'000'000; words += 1 + words / 50) {
        const double length = LengthOfClass(LengthClassOf(words));
        EXPECT_GE(length, last) << words;
        EXPECT_LE(length, static_cast<double>(words)) << words;
        EXPECT_GE(length * 1.125, static_cast<double>(words)) << words;
        last = length;
    }
}

}  // namespace
}  // namespace quorbel
