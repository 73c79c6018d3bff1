#include <gmock/gmock.h>

#include "data/SearchDescription.h"

namespace quorbel {
namespace {

const CReferences kReferences{{{L"q", L"old maps"},
                               {L"quay", L"north"},
                               {L"up", L"/../../etc"},
                               {L"sub", L"/letters"},
                               {L"year", L"20"},
                               {L"mark", L"it's"},
                               {L"inject", L"' OR System.Size > 0 OR '' = '"},
                               {L"Directory", L"/etc"},
                               {L"missing", L"/etc"},
                               {L"Directory$docs/reports", L"0/etc"},
                               {L"Registry$Title", L"forged"}},
                              {{L"Directory$docs", L"0/srv/docs"},
                               {L"Directory$docs-old", L"0\\srv\\old\\.\\docs\\"},
                               {L"Directory$drive", L"\\\\?\\/mnt/d/web"},
                               {L"Registry$Title", L"The archive"},
                               {L"field", L"from a form"}}};

struct CParsed {
    CResult<CSearchDescription> description;
    CRewriteTable rewrites;
};
CParsed Parse(std::wstring_view text) {
    CRewriteTable rewrites;
    auto description = CSearchDescription::Parse(text, kReferences, rewrites);
    return {std::move(description), std::move(rewrites)};
}

TEST(SearchDescription, IsMadeOfLinesWithNamesAndValues) {
    struct CCase {
        std::wstring_view text;
        std::wstring_view name;
        std::optional<std::wstring> value;
    };
    const CCase cases[] = {
        {L"QUERY=a#b\r\n", L"QUERY", L"a#b"},
        {L"query=x", L"QUERY", L"x"},
        {L"QUERY= x =y ", L"QUERY", L" x =y "},
        {L"# SCOPE=x\r\nQUERY=y", L"# SCOPE", std::nullopt},
        {L"SORT#ING=y", L"SORT#ING", std::nullopt},
        {L"QUERY=first\r\nQuery=second", L"QUERY", L"first"},
        {L"no entry\n\nQUERY=lone\nPATH=x", L"QUERY", L"lone"},
        {L"\xFEFFQUERY=marked", L"QUERY", L"marked"},
        {L"QUERY=", L"QUERY", L""},
        {L"", L"QUERY", std::nullopt},
        {L"QUERY=last", L"QUERY", L"last"},
    };
    for (const CCase& one : cases) {
        const CParsed parsed = Parse(one.text);
        ASSERT_TRUE(parsed.description.IsOk());
        const std::wstring* const value = parsed.description.Value().Find(one.name);
        ASSERT_EQ(value != nullptr, one.value.has_value()) << ToUtf8(one.text);
        if (value) {
            EXPECT_EQ(*value, *one.value) << ToUtf8(one.text);
        }
    }
}

TEST(SearchDescription, PutsValuesInPlaceOfReferences) {
    struct CCase {
        std::wstring_view line;
        std::wstring value;
    };
    const CCase cases[] = {
        {L"QUERY=$q", L"old maps"},
        {L"QUERY=<$q> and <$quay>", L"<old maps> and <north>"},
        {L"QUERY=$unknown rest", L""},
        {L"QUERY=a$none b$q", L"aold maps"},
        {L"QUERY=a$", L"a"},
        {L"QUERY=$field", L"from a form"},
        {L"QUERY=$Registry$Title", L"The archive"},
        {L"SCOPE=$Directory$docs", L"file:/srv/docs"},
        {L"SCOPE=file:$Directory$docs", L"file:/srv/docs"},
        {L"SCOPE=$Directory$docs-old", L"file:/srv/old/docs"},
        {L"SCOPE=$Directory$docs/reports", L"file:/srv/docs/reports"},
        {L"SCOPE=$Directory$drive\\deep", L"file:/mnt/d/web\\deep"},
        {L"PATH=$Directory$docs", L"/srv/docs"},
        // Within quotes an apostrophe stays one; outside nothing but a name or a number is let through.
        {L"COMMAND=CONTAINS('$mark')", L"CONTAINS('it''s')"},
        {L"COMMAND=CONTAINS('$inject')", L"CONTAINS(''' OR System.Size > 0 OR '''' = ''')"},
        {L"COMMAND=SELECT TOP $year x", L"SELECT TOP 20 x"},
    };
    for (const CCase& one : cases) {
        const CParsed parsed = Parse(one.line);
        ASSERT_TRUE(parsed.description.IsOk()) << ToUtf8(one.line);
        const std::wstring_view name = one.line.substr(0, one.line.find(L'='));
        EXPECT_EQ(*parsed.description.Value().Find(name), one.value) << ToUtf8(one.line);
    }
    EXPECT_EQ(Parse(L"COMMAND=SELECT x WHERE $inject").description.Error(), ErrorCode::InvalidParameter);
    for (const wchar_t* refused :
         {L"WHERERESTRICTIONS=AND $mark", L"COMMAND=SCOPE='file:$Directory$docs$up'",
          L"COMMAND=SCOPE='file:$Directory$docs$year'", L"COMMAND=SCOPE='/srv/docs/$up'",
          L"SCOPE=$Directory$missing", L"SCOPE=$Registry$missing"}) {
        EXPECT_EQ(Parse(refused).description.Error(), ErrorCode::InvalidParameter) << ToUtf8(refused);
    }
    EXPECT_TRUE(Parse(L"COMMAND=SCOPE='file:$Directory$docs$sub'").description.IsOk());
}

TEST(SearchDescription, KnowsTheWebPathsOfItsFolders) {
    const CParsed parsed = Parse(L"SCOPE=$Directory$docs");
    struct CCase {
        std::wstring_view value;
        std::wstring shown;
    };
    const CCase cases[] = {
        {L"file:/srv/docs/x.pdf", L"/docs/x.pdf"},
        {L"file:/srv/docs", L"/docs"},
        {L"file:/srv/docs2/x.pdf", L"file:/srv/docs2/x.pdf"},
        {L"file:/srv", L"file:/srv"},
        {L"docs", L"docs"},
        {L"", L""},
    };
    for (const CCase& one : cases) EXPECT_EQ(Rewrite(parsed.rewrites, one.value), one.shown);
    // A folder within another one, and values between them in order.
    const CRewriteTable nested{{L"file:/a", L"/outer"}, {L"file:/a/b", L"/inner"}};
    EXPECT_EQ(Rewrite(nested, L"file:/a/b/x"), L"/inner/x");
    EXPECT_EQ(Rewrite(nested, L"file:/a/c"), L"/outer/c");
    EXPECT_EQ(Rewrite(Parse(L"COMMAND=... SCOPE='file:$Directory$docs'").rewrites, L"file:/srv/docs/x"),
              L"/docs/x");
}

TEST(SearchDescription, RestrictsTheSearchToItsFolderWhateverTheRequestHolds) {
    struct CCase {
        std::wstring_view text;
        std::optional<std::wstring> scope;  ///< none: refused
    };
    const CCase cases[] = {
        {L"QUERY=x", L""},
        {L"PATH=/x", L""},
        {L"SCOPE=$Directory$docs", L"file:\\srv\\docs"},
        {L"SCOPE=$Directory$docs\nPATH=/a/./b/../c/", L"file:\\srv\\docs\\a\\c"},
        {L"SCOPE=/srv/docs\nPATH=/../other", L"\\srv\\other"},
        {L"SCOPE=$Directory$docs\nPATH=$sub", L"file:\\srv\\docs\\letters"},
        {L"SCOPE=$Directory$docs\nPATH=/a$sub", L"file:\\srv\\docs\\a\\letters"},
        {L"SCOPE=$Directory$docs$sub", L"file:\\srv\\docs\\letters"},
        {L"SCOPE=$Directory$docs/a-$year", L"file:\\srv\\docs\\a-20"},
        {L"SCOPE=$Directory$docs\nPATH=$up", std::nullopt},
        {L"SCOPE=$Directory$docs\nPATH=/a$up", std::nullopt},
        {L"SCOPE=$Directory$docs$up", std::nullopt},
        {L"SCOPE=$Directory$docs\nPATH=$year", std::nullopt},
        {L"SCOPE=$Directory$docs$year", std::nullopt},
        {L"SCOPE=/srv/docs/a$up", std::nullopt},
    };
    for (const CCase& one : cases) {
        const auto scope = Parse(one.text).description.Value().Scope();
        ASSERT_EQ(scope.IsOk(), one.scope.has_value()) << ToUtf8(one.text);
        if (scope.IsOk()) {
            EXPECT_EQ(scope.Value(), *one.scope) << ToUtf8(one.text);
        }
    }
}

TEST(NormalPath, HasNoSegmentsThatAreNone) {
    EXPECT_EQ(NormalPath(L"/a//b/./c/../d/"), L"\\a\\b\\d");
    EXPECT_EQ(NormalPath(L"a\\b"), L"a\\b");
    EXPECT_EQ(NormalPath(L""), L".");
    EXPECT_EQ(NormalPath(L"a/.."), L".");
    EXPECT_EQ(NormalPath(L"/.."), L"\\");
    EXPECT_EQ(NormalPath(L"../../x"), L"x");
}

}  // namespace
}  // namespace quorbel
