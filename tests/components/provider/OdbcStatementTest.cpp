#include "components/provider/OdbcStatement.h"
#include "components/provider/SqlCommandParser.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {
namespace {

using Kind = COdbcStatement::Kind;

CSqlStatement Statement(std::wstring_view text) {
    CSqlCommand command;
    EXPECT_EQ(CSqlCommandParser(SqlDialect::Standard, text).Parse(command), S_OK);
    EXPECT_EQ(command.statements.size(), 1u);
    return command.statements.empty() ? CSqlStatement() : command.statements.front();
}

TEST(OdbcStatement, IsSortedByItsFirstWordAndRewrittenForTheServer) {
    const struct {
        std::wstring_view text;
        Kind kind;
        std::string_view rewritten;
        std::wstring_view parameters;  // joined; "%" before one that is decoded
    } cases[] = {
        {L"SELECT 1", Kind::Query, "SELECT 1", L""},
        {L" /* a */ -- b\n select @a", Kind::Query, "select ?", L"a"},
        {L"with x as (select @a) select @b, @a from x", Kind::Query,
         "with x as (select ?) select ?, ? from x", L"aba"},
        {L"(select 1) union (select 2)", Kind::Query, "(select 1) union (select 2)", L""},
        {L"VALUES (@[a b])", Kind::Query, "VALUES (?)", L"a b"},
        {L"Insert into t values (@a) Returning x", Kind::Change, "Insert into t values (?) Returning x",
         L"a"},
        {L"merge into t using s on true when matched then do nothing", Kind::Change,
         "merge into t using s on true when matched then do nothing", L""},
        {L"CREATE TABLE t (begin_ int)", Kind::Other, "CREATE TABLE t (begin_ int)", L""},
        {L"explain select 1", Kind::Other, "explain select 1", L""},
        {L"select '?', \"a?\", $$ ? $$, $q$ ?$$? $q$, E'\\'?', 'http_header(1)' -- ?\n, @a", Kind::Query,
         "select '?', \"a?\", $$ ? $$, $q$ ?$$? $q$, E'\\'?', 'http_header(1)' -- ?\n, ?", L"a"},
        {L"select a /* ' /* ? */ ? */ from t where x = @a", Kind::Query,
         "select a /* ' /* ? */ ? */ from t where x = ?", L"a"},
        {L"select * from t where a = http_decode ( @a ) and b = @b", Kind::Query,
         "select * from t where a = ? and b = ?", L"%ab"},
        {L"select HTTP_DECODE(@a)||my_http_decode(@a)", Kind::Query, "select ?||my_http_decode(?)", L"%aa"},
        {L"SELECT http_header('X: ' || @a), Http_Provenance ('Archive')", Kind::Functions,
         "SELECT http_header('X: ' || ?), Http_Provenance ('Archive')", L"a"},
        {L"values (script_action('f', http_decode(@a)))", Kind::Functions, "values (script_action('f', ?))",
         L"%a"},
        {L"select http_decode('a%20b')", Kind::Functions, "select http_decode('a%20b')", L""},
        {L"select http_header from t", Kind::Query, "select http_header from t", L""},
        {L"select 1e5, x$1, 2from t", Kind::Query, "select 1e5, x$1, 2from t", L""},
    };
    for (const auto& one : cases) {
        COdbcStatement parsed;
        ASSERT_EQ(ParseOdbcStatement(Statement(one.text), parsed), S_OK)
            << ToUtf8(one.text) << ToUtf8(TakeErrorInfo());
        EXPECT_EQ(static_cast<int>(parsed.kind), static_cast<int>(one.kind)) << ToUtf8(one.text);
        EXPECT_EQ(parsed.text, one.rewritten);
        std::wstring parameters;
        for (const auto& parameter : parsed.parameters) {
            parameters += (parameter.decoded ? L"%" : L"") + parameter.name;
        }
        EXPECT_EQ(parameters, one.parameters) << ToUtf8(one.text);
    }
}

TEST(OdbcStatement, IsRefusedWhenItCannotBeRunAsItSays) {
    const std::pair<std::wstring_view, std::wstring_view> cases[] = {
        {L"BEGIN", L"transaction"},
        {L"start transaction", L"transaction"},
        {L" /* x */ Commit", L"transaction"},
        {L"END", L"transaction"},
        {L"rollback to savepoint a", L"transaction"},
        {L"abort", L"transaction"},
        {L"SAVEPOINT a", L"transaction"},
        {L"release a", L"transaction"},
        {L"PREPARE TRANSACTION 'a'", L"transaction"},
        {L"copy t to stdout", L"copy"},
        {L"COPY t FROM STDIN", L"copy"},
        {L"select http_header('a: b') from t", L"reads no table"},
        {L"insert into t values (script_action('a'))", L"reads no table"},
        {L"table http_decode(x)", L"reads no table"},
        {L"select http_decode(a) from t", L"http_decode"},
    };
    for (const auto& [text, reason] : cases) {
        COdbcStatement parsed;
        EXPECT_EQ(ParseOdbcStatement(Statement(text), parsed), DB_E_ERRORSINCOMMAND) << ToUtf8(text);
        EXPECT_NE(TakeErrorInfo().find(reason), std::wstring::npos) << ToUtf8(text);
    }
}

TEST(OdbcStatement, IsRefusedWhenTheServerWouldSeeOtherPartsThanTheCommandHas) {
    const CSqlStatement cases[] = {
        {{"select 1; commit; select 2"}, {}},
        {{"select a ? 'b' from t"}, {}},
        {{"select '", "'"}, {L"a"}},
        {{"select $x$", "$x$"}, {L"a"}},
        {{"select 1 -- ", "\n"}, {L"a"}},
        {{"select E'\\'", "'"}, {L"a"}},
        {{std::string("select 1\0from t", 15)}, {}},
    };
    for (const CSqlStatement& statement : cases) {
        COdbcStatement parsed;
        EXPECT_EQ(ParseOdbcStatement(statement, parsed), DB_E_ERRORSINCOMMAND) << statement.pieces.front();
        EXPECT_NE(TakeErrorInfo(), L"");
    }
}

}  // namespace
}  // namespace quorbel
