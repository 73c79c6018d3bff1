#include "platform/folders/WildcardPattern.h"

namespace quorbel {

namespace {

struct CCase {
    std::wstring_view segment;
    std::wstring_view kind;
    std::wstring_view name;
    bool matches;
};

TEST(WildcardPattern, MatchesWholeNamesWithStarAndQuestionMarkAsItsOnlyWildcards) {
    const CCase cases[] = {
        {L"a.GET*", L"", L"a.GET.sql", true},
        {L"a.GET*", L"", L"a.GET", true},
        {L"a.GET*", L"", L"A.GET.sql", false},
        {L"a.GET*", L"", L"a.GE", false},
        {L"a", L"", L"ab", false},
        {L"ab", L"", L"a", false},
        {L"", L"", L"a", false},
        {L"*", L"", L"a", true},
        {L"?", L"", L"\U0001F600", true},
        {L"?", L"", L"\u00e4", true},
        {L"??", L"", L"\U0001F600", false},
        {L"\U0001F600*", L"", L"\U0001F600.GET.html", true},
        {L"*.b", L"", L"a.b.b", true},
        {L"*ab*ab", L"", L"abab", true},
        {L"*ab*ab", L"", L"aab", false},
        {L"a*?c", L"", L"abc", true},
        {L"a*?c", L"", L"ac", false},
        {L"a*b*c*d", L"", L"aXbYbZcXcd", true},
        {L"[a]*", L"", L"a", false},
        {L"[a]*", L"", L"[a]b", true},
        {L"what?*", L"", L"what?.GET.html", true},
        {L"2*3*", L"", L"2*3.GET.html", true},
        {L"my report.GET*", L"", L"my report.GET.sql", true},
        {L"report.GET.", L"SQL", L"report.GET.sql", true},
        {L"report.GET.", L"SQL", L"report.GET.SqL2", true},
        {L"report.GET.", L"SQL", L"report.get.sql", false},
        {L"report.GET.", L"SQL", L"report.GET.sq", false},
        {L"report.GET.", L"SQL", L"report.GET.xsql", false},
        {L"r*.", L"SQL", L"r.txt.old.Sql", true},
        {L"r.", L"\u00c4", L"r.\u00e4x", true},
        {L"*a*a*a*a*a*a*a*b", L"", L"aXaXaXaXaXaXaXb", true},
        {L"*a*a*a*a*a*a*a**?", L"", L"aaaaaaa?", true},
        // One star more.
        {L"*a*a*a*a*a*a*a*b*", L"", L"aXaXaXaXaXaXaXb", false},
        {L"**a*a*a*a*a*a*a*b*?", L"", L"**a*a*a*a*a*a*a*b*?", true},
        {L"**a*a*a*a*a*a*a*b*?", L"", L"*a*a*a*a*a*a*a*b*?", false},
        {L"*a*a*a*a*a*a*a*b*", L"SQL", L"*a*a*a*a*a*a*a*b*sql", true},
    };
    for (const CCase& one : cases) {
        EXPECT_EQ(CWildcardPattern(one.segment, one.kind).Matches(one.name), one.matches)
            << testing::PrintToString(one.segment) << ' ' << testing::PrintToString(one.name);
    }
}

TEST(WildcardPattern, NamesWhatEveryMatchBeginsWith) {
    EXPECT_EQ(CWildcardPattern(L"\u00e4b*c", L"").Prefix(),
              "\xC3\xA4"
              "b");
    EXPECT_EQ(CWildcardPattern(L"ab?", L"").Prefix(), "ab");
    EXPECT_EQ(CWildcardPattern(L"*", L"SQL").Prefix(), "");
    EXPECT_EQ(CWildcardPattern(L"a.", L"SQL").Prefix(), "a.");
    EXPECT_EQ(CWildcardPattern(L"*a*a*a*a*a*a*a*a*", L"").Prefix(), "*a*a*a*a*a*a*a*a*");
}

TEST(WildcardPattern, KnowsHowShortAMatchCanBe) {
    EXPECT_EQ(CWildcardPattern(L"\u00e4**?", L"").LeastBytes(), 3u);
    EXPECT_EQ(CWildcardPattern(L"a*", L"\u00e4b").LeastBytes(), 3u);
    EXPECT_EQ(CWildcardPattern(L"*a*a*a*a*a*a*a*a*", L"").LeastBytes(), 17u);
}

TEST(WildcardPattern, DoesNotTakeExponentialTimeOverManyStars) {
    std::wstring stars;
    for (std::size_t i = 0; i < CWildcardPattern::kMaximumStars; ++i) stars += L"*a";
    // With backtracking over every star this would not end in the life of the machine.
    EXPECT_FALSE(CWildcardPattern(stars + L"b", L"").Matches(std::wstring(255, L'a')));
}

}  // namespace

}  // namespace quorbel
