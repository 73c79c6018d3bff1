#include "components/provider/SqlCommandCache.h"
#include "components/provider/SqlCommandParser.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {
namespace {

constexpr SqlDialect kDialects[] = {SqlDialect::Sqlite, SqlDialect::Standard};

/// The command with each parameter as <name> and its statements in lines.
std::string Parsed(SqlDialect dialect, std::wstring_view text) {
    CSqlCommand command;
    const HRESULT result = CSqlCommandParser(dialect, text).Parse(command);
    if (!Succeeded(result)) {
        EXPECT_EQ(result, DB_E_ERRORSINCOMMAND);
        return "! " + ToUtf8(TakeErrorInfo());
    }
    std::string shown;
    for (const CSqlStatement& statement : command.statements) {
        EXPECT_EQ(statement.pieces.size(), statement.parameters.size() + 1);
        if (!shown.empty()) shown += "\n";
        for (std::size_t index = 0; index != statement.pieces.size(); ++index) {
            if (index != 0) shown += "<" + ToUtf8(statement.parameters[index - 1]) + ">";
            shown += statement.pieces[index];
        }
    }
    return shown;
}

TEST(SqlCommandParser, FindsParametersOutsideQuotesAndComments) {
    const std::pair<std::wstring_view, std::string_view> cases[] = {
        {L"SELECT @a", "SELECT <a>"},
        {L"@a,@b+@a", "<a>,<b>+<a>"},
        {L"x=@Session$User;", "x=<Session$User>"},
        {L"@a_1$\u00e4-2", "<a_1$\u00e4>-2"},
        {L"@1", "<1>"},
        {L"a<@b", "a<<b>"},
        {L"@[Header$Accept-Language]", "<Header$Accept-Language>"},
        {L"@[a%20b]1", "<a%20b>1"},
        {L"@[ids[]]]", "<ids[]>"},
        {L"@[]", "<>"},
        {L"@['; -- ]", "<'; -- >"},
        {L"@@a @@@b @@[c]", "@@a @@@b @@[c]"},
        {L"@ a @", "@ a @"},
        {L"'@a''@b' \"@c\"\"@d\" @e", "'@a''@b' \"@c\"\"@d\" <e>"},
        {L"'\\' @a", "'\\' <a>"},
        {L"-- @a ' ;\n@b", "<b>"},
        {L"x -- @a ' ;\n@b", "x -- @a ' ;\n<b>"},
        {L"x /* @a ' ; -- */ @b", "x /* @a ' ; -- */ <b>"},
        {L"'never closed @a;", "'never closed @a;"},
        {L"x/* never closed @a;", "x/* never closed @a;"},
        {L"a - @b - -@c", "a - <b> - -<c>"},
        {L"a$b", "a$b"},
    };
    for (const SqlDialect dialect : kDialects) {
        for (const auto& [text, shown] : cases) EXPECT_EQ(Parsed(dialect, text), shown) << ToUtf8(text);
    }
}

TEST(SqlCommandParser, KnowsTheQuotesOfEachDialect) {
    const std::tuple<std::wstring_view, std::string_view, std::string_view> cases[] = {
        {L"`@a` @b", "`@a` <b>", "`<a>` <b>"},
        {L"[@a] @b", "[@a] <b>", "[<a>] <b>"},
        {L"[a;b]", "[a;b]", "[a\nb]"},
        {L"E'\\'@a' @b'", "E'\\'<a>' @b'", "E'\\'@a' <b>'"},
        {L"e'''@a' @b", "e'''@a' <b>", "e'''@a' <b>"},
        {L"re'\\' @a", "re'\\' <a>", "re'\\' <a>"},
        {L"/* /* */ @a */ @b", "<a> */ <b>", "<b>"},
        {L"x::int", "! A parameter is written @name or @[any name] (line 1).", "x::int"},
        {L"$$ @a; $$ @b", "! A parameter is written @name or @[any name] (line 1).", "$$ @a; $$ <b>"},
        {L"$t$ $$ @a $t$ @b", "! A parameter is written @name or @[any name] (line 1).", "$t$ $$ @a $t$ <b>"},
        {L"CREATE TRIGGER t INSERT ON u BEGIN SELECT 1; SELECT 2; END; SELECT 3",
         "CREATE TRIGGER t INSERT ON u BEGIN SELECT 1; SELECT 2; END\nSELECT 3",
         "CREATE TRIGGER t INSERT ON u BEGIN SELECT 1\nSELECT 2\nEND\nSELECT 3"},
        {L"create /*x*/ temp trigger t insert on u begin select ';end;'; end; select 3",
         "create /*x*/ temp trigger t insert on u begin select ';end;'; end\nselect 3",
         "create /*x*/ temp trigger t insert on u begin select ';end;'\nend\nselect 3"},
        {L"CREATE TABLE trigger_(a); SELECT 1", "CREATE TABLE trigger_(a)\nSELECT 1",
         "CREATE TABLE trigger_(a)\nSELECT 1"},
    };
    for (const auto& [text, sqlite, standard] : cases) {
        EXPECT_EQ(Parsed(SqlDialect::Sqlite, text), sqlite) << ToUtf8(text);
        EXPECT_EQ(Parsed(SqlDialect::Standard, text), standard) << ToUtf8(text);
    }
}

TEST(SqlCommandParser, SplitsStatementsAndDropsEmptyOnes) {
    const std::pair<std::wstring_view, std::string_view> cases[] = {
        {L"", ""},         {L" ;; -- nothing\n ; /* ; */", ""}, {L"\xFEFFSELECT 1", "SELECT 1"},
        {L"a;b;", "a\nb"}, {L";a';'b;\";\";", "a';'b\n\";\""},
    };
    for (const SqlDialect dialect : kDialects) {
        for (const auto& [text, shown] : cases) EXPECT_EQ(Parsed(dialect, text), shown) << ToUtf8(text);
    }
}

TEST(SqlCommandParser, RefusesParametersOfOtherKindsAndSaysWhere) {
    using namespace std::literals;
    constexpr std::string_view kWritten = "! A parameter is written @name or @[any name] (line 2).";
    const std::pair<std::wstring, std::string_view> cases[] = {
        {L"SELECT\n ?", kWritten},
        {L"SELECT\n ?1", kWritten},
        {L"\nSELECT :x", kWritten},
        {L"SELECT 1;\n$x", kWritten},
        {L"SELECT\n#x", kWritten},
        {L"'\n'\u00e4 @a ?", kWritten},
        {L"SELECT 1,\n@[a", "! The bracket of a parameter is not closed (line 2)."},
        {L"SELECT 1,\n@[a]]", "! The bracket of a parameter is not closed (line 2)."},
        {L"\na\0b"s, "! A command holds no NUL (line 2)."},
    };
    for (const auto& [text, shown] : cases)
        EXPECT_EQ(Parsed(SqlDialect::Sqlite, text), shown) << ToUtf8(text);
}

TEST(SqlCommandParser, CountsTheLinesInWhichStatementsBegin) {
    CSqlCommand command;
    ASSERT_EQ(CSqlCommandParser(SqlDialect::Sqlite, L"--\n\na\n;b;\n/*\n*/ c '\n' d;\ne").Parse(command),
              S_OK);
    std::vector<std::size_t> lines;
    for (const CSqlStatement& statement : command.statements) lines.push_back(statement.line);
    EXPECT_EQ(lines, (std::vector<std::size_t>{3, 4, 6, 8}));
}

TEST(SqlCommandCache, KeepsWhatWasParsedLastForEachDialect) {
    CSqlCommandCache cache;
    std::shared_ptr<const CSqlCommand> first;
    std::shared_ptr<const CSqlCommand> second;
    ASSERT_EQ(cache.Parse(SqlDialect::Sqlite, L"[@a]", first), S_OK);
    ASSERT_EQ(cache.Parse(SqlDialect::Sqlite, L"[@a]", second), S_OK);
    EXPECT_EQ(first, second);
    ASSERT_EQ(cache.Parse(SqlDialect::Standard, L"[@a]", second), S_OK);
    EXPECT_NE(first->statements[0].parameters, second->statements[0].parameters);
    for (int number = 0; number != 2000; ++number) {
        ASSERT_EQ(cache.Parse(SqlDialect::Sqlite, L"SELECT " + std::to_wstring(number), second), S_OK);
    }
    ASSERT_EQ(cache.Parse(SqlDialect::Sqlite, L"[@a]", second), S_OK);
    EXPECT_NE(first, second) << "the cache grows without bound";
    EXPECT_EQ(cache.Parse(SqlDialect::Sqlite, L"?", second), DB_E_ERRORSINCOMMAND);
}

}  // namespace
}  // namespace quorbel
