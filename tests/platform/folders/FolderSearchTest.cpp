#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>

#include "platform/folders/FolderSearch.h"
#include "tests/platform/folders/SearchFixture.h"

namespace quorbel {

namespace {

namespace fs = std::filesystem;

using FolderSearch = CSearchFixture;

TEST_F(FolderSearch, FindsRegularFilesByTheLastSegmentInOrdinalOrder) {
    for (const char* name : {"b.GET.html", "a.GET.sql", "a.GET.HTML", "a.get.txt", "a b.GET.html",
                             "what?.GET.x", "2*3.GET.x", "\xC3\xA4.GET.x", "\xF0\x9F\x98\x80.GET.x",
                             "\xEF\xBF\xBD.GET.x", "bad\xFFname.GET.x", "sub/c.GET.html"}) {
        WriteFile(Path(name), "");
    }
    struct CCase {
        std::string_view pattern;
        std::wstring_view kind;
        Names names;
    };
    const CCase cases[] = {
        {"a.GET*", L"", {L"a.GET.HTML", L"a.GET.sql"}},
        {"A.GET*", L"", {}},
        {"a.GET.", L"SQL", {L"a.GET.sql"}},
        {"a.GET.", L"html", {L"a.GET.HTML"}},
        {"a b*", L"", {L"a b.GET.html"}},
        {"what?.GET*", L"", {L"what?.GET.x"}},
        {"2*3.GET*", L"", {L"2*3.GET.x"}},
        {"?.GET.x", L"", {L"\u00e4.GET.x", L"\uFFFD.GET.x", L"\U0001F600.GET.x"}},
        {"bad*", L"", {}},
        {"sub*", L"", {}},
        {"sub/c.GET*", L"", {L"c.GET.html"}},
        {"sub\\c.GET*", L"", {L"c.GET.html"}},
        {"sub//./c.GET*", L"", {L"c.GET.html"}},
        {"sub/../b.GET*", L"", {L"b.GET.html"}},
        {"s*b/c.GET*", L"", {}},
        {"b.GET.html/x*", L"", {}},
        {"", L"", {}},
    };
    for (const CCase& one : cases) {
        for (int turn = 0; turn < 2; ++turn) {
            const CFolderMatches matches = Find(one.pattern, one.kind);
            EXPECT_EQ(matches.names, one.names) << one.pattern;
            EXPECT_TRUE(matches.followed) << one.pattern;
            EXPECT_EQ(m_search->Find(FromUtf8(Path(one.pattern).string()), one.kind, nullptr).followed,
                      false);
        }
    }
}

TEST_F(FolderSearch, GivesNoMoreThanTheFirstNames) {
    for (int i = 99; i >= 10; --i) WriteFile(Path("f" + std::to_string(i)), "");
    const auto names = Find("f*").names;
    ASSERT_EQ(names.size(), CFolderMatches::kMaximum);
    EXPECT_EQ(names.front(), L"f10");
    EXPECT_EQ(names.back(), L"f25");
}

TEST_F(FolderSearch, RefusesPatternsThatNameNoPlace) {
    WriteFile(Path("a"), "");
    const std::wstring base = FromUtf8(m_folder.Path().string());
    const std::wstring surrogate(1, static_cast<wchar_t>(0xD800));
    for (const std::wstring& pattern :
         {std::wstring(), std::wstring(L"a*"), base + L"/" + std::wstring(1, L'\0') + L"*",
          base + L"/*" + surrogate, base + surrogate + L"/*",
          std::wstring(L"/") + std::wstring(10'000, L'x') + L"/*", L"/" + std::wstring(300, L'x') + L"/*",
          base + L"/" + std::wstring(200, L'x') + L"*" + std::wstring(56, L'?')}) {
        const CFolderMatches matches = m_search->Find(pattern, {}, m_follower);
        EXPECT_TRUE(matches.names.empty());
        EXPECT_FALSE(matches.followed);
    }
    EXPECT_EQ(m_search->Counters().watches, 0u);
    EXPECT_EQ(m_search->Counters().listings, 0u);
    EXPECT_TRUE(Find(std::string(200, 'x') + std::string(100, '*') + std::string(55, '?')).followed);
}

TEST_F(FolderSearch, TakesOnlyWhatIsARegularFileInTheEnd) {
    WriteFile(Path("there/file"), "");
    fs::create_directory(Path("x.folder"));
    ASSERT_EQ(::mkfifo(Path("x.fifo").c_str(), 0600), 0);
    fs::create_symlink("there/file", Path("x.link"));
    fs::create_symlink("there/none", Path("x.dangling"));
    fs::create_symlink("there", Path("x.linkToFolder"));
    fs::create_symlink("x.loop", Path("x.loop"));
    EXPECT_EQ(Find("x*").names, (Names{L"x.link"}));
    EXPECT_EQ(Find("there/*").names, (Names{L"file"}));

    // The same, arriving as changes.
    ASSERT_EQ(::mkfifo(Path("y.fifo").c_str(), 0600), 0);
    fs::create_directory(Path("y.folder"));
    fs::create_symlink("there/file", Path("y.link"));
    fs::create_symlink("there/none", Path("y.dangling"));
    fs::create_hard_link(Path("there/file"), Path("y.other"));
    while (Find("y.other").names.empty()) ASSERT_TRUE(IsTold());
    EXPECT_EQ(Find("y*").names, (Names{L"y.link", L"y.other"}));
}

TEST_F(FolderSearch, DoesNotClaimToFollowWhatAFileLinkLeadsTo) {
    WriteFile(Path("target"), "");
    WriteFile(Path("plain"), "");
    fs::create_symlink("target", Path("link"));
    EXPECT_FALSE(Find("link*").followed);
    EXPECT_TRUE(Find("plain*").followed);
    fs::remove(Path("target"));
    EXPECT_TRUE(Find("link*").names.empty());
    EXPECT_FALSE(Find("link*").followed);
}

TEST_F(FolderSearch, PatchesTheListingInsteadOfReadingTheFolderAgain) {
    WriteFile(Path("d/a"), "");
    EXPECT_EQ(Find("d/*").names, (Names{L"a"}));
    const std::pair<std::function<void()>, Names> steps[] = {
        {[&] { WriteFile(Path("d/b"), ""); }, {L"a", L"b"}},
        {[&] { fs::remove(Path("d/a")); }, {L"b"}},
        {[&] { fs::rename(Path("d/b"), Path("d/c")); }, {L"c"}},
        {[&] { WriteFile(Path("e"), ""), fs::rename(Path("e"), Path("d/e")); }, {L"c", L"e"}},
        {[&] { fs::rename(Path("d/c"), Path("c")); }, {L"e"}},
        {[&] { WriteFile(Path("f"), ""), fs::rename(Path("f"), Path("d/e")); }, {L"e"}},
        {[&] { fs::create_directory(Path("d/g")); }, {L"e"}},
        {[&] { fs::remove(Path("d/e")), fs::rename(Path("d/g"), Path("d/e")); }, {}},
        {[&] { WriteFile(Path("d/last"), ""); }, {L"last"}},
    };
    for (const auto& [change, names] : steps) {
        change();
        ASSERT_TRUE(IsTold());
        ASSERT_TRUE(Becomes("d/*", names));
    }
    EXPECT_EQ(m_search->Counters().listings, 1u);
    EXPECT_EQ(m_search->Counters().readings, 0u);
    EXPECT_EQ(m_search->Counters().patches, 12u);
}

TEST_F(FolderSearch, SeesAFileThatTakesThePlaceOfAnotherKind) {
    ASSERT_EQ(::mkfifo(Path("a").c_str(), 0600), 0);
    EXPECT_TRUE(Find("a").names.empty());
    WriteFile(Path("b"), "");
    ASSERT_TRUE(Becomes("b", {L"b"}));
    fs::rename(Path("b"), Path("a"));
    ASSERT_TRUE(Becomes("a", {L"a"}));
}

TEST_F(FolderSearch, KeepsBothOfTwoNamesThatAreExchanged) {
    WriteFile(Path("d/a"), "");
    WriteFile(Path("d/b"), "");
    ASSERT_EQ(Find("d/*").names.size(), 2u);
    ASSERT_EQ(::renameat2(AT_FDCWD, Path("d/a").c_str(), AT_FDCWD, Path("d/b").c_str(), RENAME_EXCHANGE), 0);
    WriteFile(Path("d/last"), "");
    EXPECT_TRUE(Becomes("d/*", {L"a", L"b", L"last"}));
}

struct CWayCase {
    const char* what;
    std::function<void(const CTemporaryFolder&)> before;
    std::string_view pattern;
    std::vector<std::wstring> first;
    std::function<void(const CTemporaryFolder&)> change;
    std::vector<std::wstring> then;
};

TEST_F(FolderSearch, TellsWhenAnyNameOnTheWayLeadsElsewhere) {
    const CWayCase cases[] = {
        {"a missing folder is created",
         [](auto&) {},
         "m1/n/*",
         {},
         [](auto& f) { WriteFile(f / "m1/n/file", ""); },
         {L"file"}},
        {"a missing folder is moved there whole",
         [](auto& f) { WriteFile(f / "other2/n/file", ""); },
         "m2/n/*",
         {},
         [](auto& f) { fs::rename(f / "other2", f / "m2"); },
         {L"file"}},
        {"a file gives way to a folder",
         [](auto& f) { WriteFile(f / "m3", ""); },
         "m3/*",
         {},
         [](auto& f) { fs::remove(f / "m3"), WriteFile(f / "m3/file", ""); },
         {L"file"}},
        {"the folder is removed",
         [](auto& f) { WriteFile(f / "m4/file", ""); },
         "m4/*",
         {L"file"},
         [](auto& f) { fs::remove_all(f / "m4"); },
         {}},
        {"a folder above is renamed",
         [](auto& f) { WriteFile(f / "m5/n/o/file", ""); },
         "m5/n/o/*",
         {L"file"},
         [](auto& f) { fs::rename(f / "m5", f / "m5b"); },
         {}},
        {"the folder is replaced by another",
         [](auto& f) { WriteFile(f / "m6/old", ""), WriteFile(f / "m6b/new", ""); },
         "m6/*",
         {L"old"},
         [](auto& f) { fs::rename(f / "m6", f / "m6c"), fs::rename(f / "m6b", f / "m6"); },
         {L"new"}},
        {"a link on the way is swapped in one step",
         [](auto& f) {
             WriteFile(f / "v1/n/old", ""), WriteFile(f / "v2/n/new", "");
             fs::create_symlink("v1", f / "current"), fs::create_symlink("v2", f / "next");
         },
         "current/n/*",
         {L"old"},
         [](auto& f) { fs::rename(f / "next", f / "current"); },
         {L"new"}},
        {"a link that a link leads to is turned, absolute",
         [](auto& f) {
             WriteFile(f / "w1/old", ""), WriteFile(f / "w2/new", "");
             fs::create_symlink(f / "w1", f / "inner"), fs::create_symlink(f / "inner", f / "outer");
             fs::create_symlink(f / "w2", f / "other");
         },
         "outer/*",
         {L"old"},
         [](auto& f) { fs::rename(f / "other", f / "inner"); },
         {L"new"}},
        {"what a dangling link leads to is created",
         [](auto& f) { fs::create_symlink("deep/er", f / "dangling"); },
         "dangling/*",
         {},
         [](auto& f) { WriteFile(f / "deep/er/file", ""); },
         {L"file"}},
        {"the folder is exchanged with another",
         [](auto& f) { WriteFile(f / "x1/old", ""), WriteFile(f / "x2/new", ""); },
         "x1/*",
         {L"old"},
         [](auto& f) {
             ::renameat2(AT_FDCWD, (f / "x1").c_str(), AT_FDCWD, (f / "x2").c_str(), RENAME_EXCHANGE);
         },
         {L"new"}},
    };
    for (const CWayCase& one : cases) {
        SCOPED_TRACE(one.what);
        one.before(m_folder);
        const CFolderMatches matches = Find(one.pattern);
        EXPECT_EQ(matches.names, one.first);
        EXPECT_TRUE(matches.followed);
        m_changed->Clear();
        one.change(m_folder);
        ASSERT_TRUE(IsTold());
        EXPECT_TRUE(Becomes(one.pattern, one.then));
    }
}

TEST_F(FolderSearch, IsNotTroubledByOtherNamesInTheFoldersAbove) {
    WriteFile(Path("a/b/file"), "");
    ASSERT_TRUE(Find("a/b/*").followed);
    const auto before = m_search->Counters();
    WriteFile(Path("other"), "");
    WriteFile(Path("a/other"), "");
    WriteFile(Path("a/b/more"), "");
    ASSERT_TRUE(IsTold());
    EXPECT_EQ(Find("a/b/*").names, (Names{L"file", L"more"}));
    EXPECT_EQ(m_search->Counters().listings, before.listings);
    EXPECT_EQ(m_search->Counters().patches, before.patches + 1);
}

TEST_F(FolderSearch, KeepsOneListingForAFolderReachedThroughTwoPaths) {
    WriteFile(Path("d/a"), "");
    fs::create_symlink("d", Path("link"));
    ASSERT_EQ(Find("d/*").names, (Names{L"a"}));
    ASSERT_EQ(Find("link/*").names, (Names{L"a"}));
    WriteFile(Path("d/b"), "");
    ASSERT_TRUE(IsTold());
    EXPECT_EQ(Find("d/*").names, (Names{L"a", L"b"}));
    EXPECT_EQ(Find("link/*").names, (Names{L"a", L"b"}));
    EXPECT_EQ(m_search->Counters().listings, 1u);

    // Taking one path away leaves the other followed.
    fs::remove(Path("link"));
    ASSERT_TRUE(Becomes("link/*", {}));
    WriteFile(Path("d/c"), "");
    ASSERT_TRUE(Becomes("d/*", {L"a", L"b", L"c"}));
    EXPECT_EQ(m_search->Counters().listings, 1u);
}

TEST_F(FolderSearch, TellsEachFollowerOnlyOfTheFoldersItSearched) {
    WriteFile(Path("one/a"), "");
    WriteFile(Path("two/a"), "");
    const auto otherChanged = CEvent::Create(EventReset::Auto).Value();
    auto other = m_search->Follow(otherChanged);
    ASSERT_TRUE(Find("one/*").followed);
    const std::wstring two = FromUtf8(Path("two/*").string());
    ASSERT_TRUE(m_search->Find(two, {}, other).followed);

    WriteFile(Path("one/b"), "");
    ASSERT_TRUE(IsTold());
    WriteFile(Path("two/b"), "");
    ASSERT_TRUE(IsSet(*otherChanged));
    EXPECT_FALSE(m_changed->Test());

    ASSERT_TRUE(Find("two/*").followed);
    other.reset();
    WriteFile(Path("two/c"), "");
    ASSERT_TRUE(IsTold());
    EXPECT_FALSE(otherChanged->Test());
}

}  // namespace

}  // namespace quorbel
