#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "components/search/SearchIndex.h"
#include "components/search/index/IndexDatabase.h"
#include "platform/Text.h"
#include "tests/components/search/text/Documents.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Paths = std::vector<std::string>;

class SearchIndex : public testing::Test {
 protected:
    SearchIndex() { fs::create_directories(Docs()); }
    fs::path Docs() const { return m_folder / "docs"; }
    fs::path IndexFolder() const { return m_folder / "index"; }

    void Start() {
        ISearchIndex::Options options{IndexFolder(), {}, SystemClock(), [](const std::wstring&) {}};
        options.worker.program = QUORBEL_PROGRAMS "/QbTextExtract";
        auto index = ISearchIndex::Start(std::move(options));
        ASSERT_TRUE(index.IsOk());
        m_index = std::move(index).Value();
        Publish({Docs()});
    }
    void Publish(const std::vector<fs::path>& folders) {
        std::vector<std::wstring> texts;
        for (const fs::path& folder : folders) texts.push_back(FromUtf8(folder.native()));
        m_index->Publish(texts);
    }
    void Write(const std::string& name, const std::string& text) const { WriteFile(Docs() / name, text); }

    /// The paths below the test's folder that a query of the index gives, in order.
    Paths Query(const std::string& sql, const std::string& argument) const {
        Paths paths;
        auto index = CIndexDatabase::Open(IndexFolder(), CIndexDatabase::Access::Read);
        if (!index.IsOk()) return paths;
        CStatement found = index.Value()->Statements().Use(sql, argument);
        for (CResult<bool> row = found.Step(); row.IsOk() && row.Value(); row = found.Step()) {
            const std::string_view path = found.Bytes(0);
            paths.emplace_back(path.starts_with(m_folder.Path().native())
                                   ? path.substr(m_folder.Path().native().size() + 1)
                                   : path);
        }
        return paths;
    }
    Paths Find(const std::string& word) const {
        return Query(
            "SELECT f.path || '/' || d.name FROM words w JOIN documents d ON d.id = w.rowid "
            "JOIN folders f ON f.id = d.folder WHERE words MATCH ? ORDER BY 1",
            "\"" + word + "\"");
    }
    Paths Skipped() const {
        return Query(
            "SELECT name || ': ' || reason FROM skipped WHERE ? = '' UNION ALL "
            "SELECT name || ': ' || problem FROM documents WHERE problem NOT NULL ORDER BY 1",
            "");
    }
    /// Waits until the condition holds; the test's time-out ends it.
    static void Await(const std::function<bool()>& condition) {
        while (!condition()) std::this_thread::yield();
    }
    void AwaitFound(const std::string& word, const Paths& paths) const {
        Await([&] { return Find(word) == paths; });
    }

    const CTemporaryFolder m_folder;
    std::unique_ptr<ISearchIndex> m_index;
};

TEST_F(SearchIndex, TakesInWhatIsThereAndFollowsEveryKindOfChange) {
    Write("old.txt", "alpha");
    Write("deep/er/file.md", "# Title\nalpha");
    Start();
    AwaitFound("alpha", {"docs/deep/er/file.md", "docs/old.txt"});

    Write("new.txt", "alpha beta");
    AwaitFound("beta", {"docs/new.txt"});
    std::ofstream(Docs() / "old.txt") << "gamma";
    AwaitFound("gamma", {"docs/old.txt"});
    fs::rename(Docs() / "new.txt", Docs() / "deep" / "renamed.txt");
    AwaitFound("renamed", {"docs/deep/renamed.txt"});
    EXPECT_THAT(Find("new"), IsEmpty());
    fs::rename(Docs() / "deep", Docs() / "shallow");
    AwaitFound("alpha", {"docs/shallow/er/file.md", "docs/shallow/renamed.txt"});
    Write("shallow/er/late.txt", "delta");
    AwaitFound("delta", {"docs/shallow/er/late.txt"});
    // As editors save: a new file takes the place of the old one.
    Write("save.tmp", "epsilon");
    fs::rename(Docs() / "save.tmp", Docs() / "old.txt");
    AwaitFound("epsilon", {"docs/old.txt"});
    AwaitFound("gamma", {});
    fs::remove(Docs() / "old.txt");
    AwaitFound("epsilon", {});
    fs::rename(Docs() / "shallow", m_folder / "elsewhere");
    AwaitFound("alpha", {});
    fs::rename(m_folder / "elsewhere", Docs() / "back");
    AwaitFound("alpha", {"docs/back/er/file.md", "docs/back/renamed.txt"});
    fs::remove_all(Docs() / "back");
    AwaitFound("alpha", {});
    fs::create_hard_link(Docs() / ".." / "index" / "index.db", Docs() / "linked.db");
    AwaitFound("linked", {"docs/linked.db"});
}

TEST_F(SearchIndex, FollowsFoldersThatTakeEachOthersPlaces) {
    Write("one/a.txt", "alpha");
    Write("two/b.txt", "beta");
    Write("outer/inner/c.txt", "gamma");
    Write("outer/inner/plan.pdf", MakePdf("delta", ""));
    Start();
    AwaitFound("gamma", {"docs/outer/inner/c.txt"});
    {
        // All of it is told in one go.
        const auto other = CIndexDatabase::Open(IndexFolder(), CIndexDatabase::Access::Write);
        ASSERT_EQ(other.Value()->Statements().Begin(), ErrorCode::Success);
        fs::rename(Docs() / "two", Docs() / "spare");
        fs::rename(Docs() / "one", Docs() / "two");
        fs::rename(Docs() / "spare", Docs() / "one");
        fs::rename(Docs() / "one/b.txt", Docs() / "two/b.txt");
        fs::rename(Docs() / "outer", Docs() / ".hidden");
        fs::rename(Docs() / ".hidden/inner", Docs() / "outer");
        other.Value()->Statements().Rollback();
    }
    AwaitFound("alpha", {"docs/two/a.txt"});
    AwaitFound("beta", {"docs/two/b.txt"});
    AwaitFound("gamma", {"docs/outer/c.txt"});
    AwaitFound("delta", {"docs/outer/plan.pdf"});
    fs::rename(Docs() / "outer", Docs() / "two/outer");
    AwaitFound("gamma", {"docs/two/outer/c.txt"});
    AwaitFound("delta", {"docs/two/outer/plan.pdf"});
}

TEST_F(SearchIndex, FollowsATopWhoseParentIsMoved) {
    WriteFile(m_folder / "above/top/a.txt", "alpha");
    Start();
    Publish({m_folder / "above/top"});
    AwaitFound("alpha", {"above/top/a.txt"});
    fs::rename(m_folder / "above", m_folder / "moved");
    AwaitFound("alpha", {});
    fs::rename(m_folder / "moved", m_folder / "above");
    AwaitFound("alpha", {"above/top/a.txt"});
}

TEST_F(SearchIndex, CatchesUpAfterARestart) {
    Write("keep.txt", "alpha");
    Write("change.txt", "alpha");
    Write("gone.txt", "alpha");
    Write("folder/gone.txt", "alpha");
    Start();
    Await([&] { return Find("alpha").size() == 4; });
    m_index.reset();
    Write("change.txt", "beta more");
    fs::remove(Docs() / "gone.txt");
    fs::remove_all(Docs() / "folder");
    Write("other/new.txt", "alpha");
    Start();
    AwaitFound("alpha", {"docs/keep.txt", "docs/other/new.txt"});
    AwaitFound("beta", {"docs/change.txt"});
}

TEST_F(SearchIndex, LeavesOutWhatIsNotForReaders) {
    Write("page.html", "<p>alpha</p>");
    for (const char* name : {"report.GET.sql", "find.get.Search", "save.POST.sql", "report.GET.sql~",
                             ".hidden", ".git/config.txt"}) {
        Write(name, "alpha");
    }
    fs::create_symlink(m_folder / "secret.txt", Docs() / "link.txt");
    WriteFile(m_folder / "secret.txt", "alpha");
    fs::create_directory_symlink(m_folder.Path(), Docs() / "loop");
    ::mkfifo((Docs() / "pipe").c_str(), 0600);
    Start();
    AwaitFound("alpha", {"docs/page.html"});
    Await([&] { return Skipped().size() == 3; });
    EXPECT_THAT(Skipped(), ElementsAre("link.txt: it is a symbolic link", "loop: it is a symbolic link",
                                       "pipe: it is no regular file"));
    fs::rename(Docs() / "page.html", Docs() / "page.GET.sql");
    AwaitFound("alpha", {});
}

TEST_F(SearchIndex, SkipsWhatItCannotReadAndSaysWhy) {
    Write("bad\xFF.txt", "alpha");
    Write("two\nlines/a.txt", "alpha");
    Write("binary.txt", std::string(1000, '\0'));
    Write("broken.pdf", "this is no PDF");
    Write("broken.docx", "PK nor this a document");
    {
        std::ofstream large(Docs() / "large.txt");
        large.seekp(100 << 20);
        large << "x";
    }
    Start();
    Await([&] { return Skipped().size() == 6; });
    const Paths skipped = Skipped();
    EXPECT_EQ(skipped[0], "bad\xFF.txt: its name is not valid UTF-8");
    EXPECT_EQ(skipped[4], "large.txt: it is larger than 32 MiB");
    EXPECT_EQ(skipped[5], "two\nlines: its name holds control characters");
    EXPECT_EQ(Find("alpha"), Paths());
    EXPECT_EQ(Find("large"), Paths{"docs/large.txt"}) << "names are found all the same";
    Write("broken.pdf.txt", "mended");
    AwaitFound("mended", {"docs/broken.pdf.txt"});
    ::rename((Docs() / "bad\xFF.txt").c_str(), (Docs() / "good.txt").c_str());
    AwaitFound("alpha", {"docs/good.txt"});
}

TEST_F(SearchIndex, FollowsTheFoldersThatArePublished) {
    WriteFile(m_folder / "first/a.txt", "alpha");
    WriteFile(m_folder / "second/b.txt", "alpha");
    WriteFile(m_folder / "second/.private/c.txt", "alpha");
    Start();
    Publish({m_folder / "first", m_folder / "first/", m_folder / "missing"});
    AwaitFound("alpha", {"first/a.txt"});
    // Folders within one another are taken once; a hidden one only when it is published itself.
    Publish({m_folder / "second", m_folder / "second/.private", m_folder / "missing"});
    AwaitFound("alpha", {"second/.private/c.txt", "second/b.txt"});
    fs::create_directory_symlink(m_folder / "first", m_folder / "missing");
    AwaitFound("alpha", {"missing/a.txt", "second/.private/c.txt", "second/b.txt"});
    // A link that is turned leads to other files.
    WriteFile(m_folder / "third/d.txt", "alpha");
    fs::create_directory_symlink(m_folder / "third", m_folder / "turned");
    fs::rename(m_folder / "turned", m_folder / "missing");
    AwaitFound("alpha", {"missing/d.txt", "second/.private/c.txt", "second/b.txt"});
    Publish({});
    AwaitFound("alpha", {});
}

TEST_F(SearchIndex, ConvergesWhenMoreHappensThanIsTold) {
    Start();
    Write("first.txt", "alpha");
    AwaitFound("alpha", {"docs/first.txt"});
    // More than the queue of notifications holds, while the index is written by somebody else.
    auto other = CIndexDatabase::Open(IndexFolder(), CIndexDatabase::Access::Write);
    ASSERT_TRUE(other.IsOk());
    ASSERT_EQ(other.Value()->Statements().Begin(), ErrorCode::Success);
    std::ifstream limit("/proc/sys/fs/inotify/max_queued_events");
    int most = 16384;
    limit >> most;
    const fs::path busy = Docs() / "busy.txt";
    for (int count = 0; count < most; ++count) {
        const int file = ::open(busy.c_str(), O_CREAT | O_WRONLY, 0600);
        ::close(file);
        ::unlink(busy.c_str());
    }
    Write("last.txt", "omega");
    fs::remove(Docs() / "first.txt");
    other.Value()->Statements().Rollback();
    AwaitFound("omega", {"docs/last.txt"});
    AwaitFound("alpha", {});
}

TEST_F(SearchIndex, IsMadeAnewOnRequestAndWhenItIsDamaged) {
    Write("a.txt", "alpha");
    Start();
    AwaitFound("alpha", {"docs/a.txt"});
    {
        auto other = CIndexDatabase::Open(IndexFolder(), CIndexDatabase::Access::Write);
        ASSERT_EQ(other.Value()->Statements().Execute("INSERT INTO facts VALUES('made', 'before')"),
                  ErrorCode::Success);
    }
    const auto wasMadeBefore = [&] {
        return Query("SELECT value FROM facts WHERE name = ?", "made").size() == 1;
    };
    EXPECT_TRUE(wasMadeBefore());
    WriteFile(IndexFolder() / ISearchIndex::kRebuildRequest, "");
    Write("b.txt", "beta");  // wakes it
    Await([&] { return !wasMadeBefore(); });
    AwaitFound("alpha", {"docs/a.txt"});
    m_index.reset();
    std::fstream(IndexFolder() / "index.db").write("no database at all", 18);
    Start();
    AwaitFound("alpha", {"docs/a.txt"});
    // Damage that is not seen when it is opened.
    m_index.reset();
    {
        std::fstream file(IndexFolder() / "index.db", std::ios::in | std::ios::out | std::ios::binary);
        for (int page = 2; page != 40; ++page)
            file.seekp(page * 4096 + 8).write(std::string(2000, 'x').data(), 2000);
    }
    Write("c.txt", "gamma");
    Start();
    AwaitFound("gamma", {"docs/c.txt"});
    AwaitFound("alpha", {"docs/a.txt"});
}

TEST_F(SearchIndex, FindsDocumentsByTheirTextsOnceTheWorkerHasReadThem) {
    Write("plan.pdf", MakePdf("lighthouse alpha", "/Title (Second floor)"));
    Write("letter.odt", MakeOpenDocument("<text:p>Dear alpha</text:p>"));
    Start();
    AwaitFound("plan", {"docs/plan.pdf"});
    AwaitFound("alpha", {"docs/letter.odt", "docs/plan.pdf"});
    EXPECT_EQ(Find("floor"), Paths{"docs/plan.pdf"});
    // Renamed before or after it was read, it is found by what it says.
    Write("later.pdf", MakePdf("beta", ""));
    fs::rename(Docs() / "later.pdf", Docs() / "renamed.pdf");
    AwaitFound("beta", {"docs/renamed.pdf"});
    fs::rename(Docs() / "renamed.pdf", Docs() / "again.pdf");
    AwaitFound("beta", {"docs/again.pdf"});
}

}  // namespace
}  // namespace quorbel
