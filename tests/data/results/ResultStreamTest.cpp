#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "data/results/BasicBuffer.h"
#include "data/results/ResultStream.h"
#include "platform/Text.h"
#include "platform/oledb/DataInitialize.h"
#include "tests/support/Sentences.h"
#include "tests/support/service/FakeProvider.h"

namespace quorbel {

namespace {

using Results = ResultStream<std::uint8_t>;
using Column = CFakeQuery::Column;
using Value = CFakeQuery::Value;

constexpr int kUnsupportedType = 1630;

std::string ReadAll(Results::QueryInfo& query, std::size_t step = 1000) {
    std::string body;
    std::vector<std::uint8_t> buffer(step);
    while (const std::size_t count = query.Read(buffer.data(), buffer.size())) {
        body.append(reinterpret_cast<const char*>(buffer.data()), count);
    }
    return body;
}

/// Queries of a provider that answers what the test says.
class CResultStreamTest : public ::testing::Test {
 protected:
    static web::http::http_request Request(const std::string& target, const std::string& accept) {
        web::http::http_request request(web::http::methods::GET);
        request.set_request_uri(target);
        if (!accept.empty()) request.headers()["Accept"] = accept;
        return request;
    }

    /// The query of a request, opened; or the error's number.
    std::shared_ptr<Results::QueryInfo> Open(const web::http::http_request& request,
                                             CHTMLDataSource::Rendering rendering = {}) {
        const auto open = [&](const std::shared_ptr<Results::QueryInfo>& query,
                              const Results::CallbackOpen& opened) {
            HRESULT result = query->Open(L"Provider=Fake");
            query->SetHeaders(request);
            if (result == S_OK) result = query->Execute(L"text", IUnknown::kId, nullptr);
            if (result == S_OK) result = query->Prepare();
            if (result != S_OK) throw ToSystemError(result);
            opened.Complete(query);
        };
        try {
            return Results::Open(L"root", request, open, std::move(rendering)).get();
        } catch (const std::system_error& error) {
            m_error = error.code().value();
            return nullptr;
        }
    }

    /// The body that a request gets; "error NUMBER" when there is none.
    std::string Answer(const std::string& target, const std::string& accept,
                       CHTMLDataSource::Rendering rendering = {}) {
        const auto query = Open(Request(target, accept), std::move(rendering));
        return query ? ReadAll(*query) : "error " + std::to_string(m_error);
    }
    std::string Json(CHTMLDataSource::Rendering rendering = {}) {
        return Answer("/report", "application/json", std::move(rendering));
    }
    std::string Xml() { return Answer("/report", "application/xml"); }

    const std::shared_ptr<CFakeQuery> m_fake = std::make_shared<CFakeQuery>();
    int m_error = 0;

 private:
    const CComRegistration m_initialize = RegisterDataInitialize();
    const CComRegistration m_provider = RegisterFakeProvider(m_fake);
};

TEST_F(CResultStreamTest, PathStreamParameterAndAcceptChooseTheFormat) {
    m_fake->columns = {{L"A", DBTYPE_VARIANT}};
    const struct {
        const char* target;
        const char* accept;
        std::wstring contentType;  ///< empty: 1630
    } cases[] = {
        {"/report", "application/json", L"application/json"},
        {"/report", "application/xml", L"text/xml"},
        {"/report", "text/css", L"text/xml"},
        {"/report", "text/html,application/xhtml+xml,*/*;q=0.8", L"text/xml"},
        {"/report", "application/json;q=0.1,application/xml", L"application/json"},
        {"/report", "text/html, application/json", L""},
        {"/report", "Application/Json", L""},
        {"/report", "application/*", L""},
        {"/report", "", L""},
        {"/report.XSLT", "", L"text/xml"},
        {"/report%2exslt", "application/json", L"text/xml"},
        {"/report?Stream=image/png", "application/json", L"image/png"},
        {"/report?Stream=image%2Fpng", "", L"image%2Fpng"},
        {"/report.xslt?Stream=image/png", "", L"text/xml"},
        {"/report?stream=image/png", "", L""},
    };
    m_fake->rows = {{{L"", DBSTATUS_S_OK, DBTYPE_WSTR, MakeStream("x")}}};
    for (const auto& test : cases) {
        SCOPED_TRACE(std::string(test.target) + " " + test.accept);
        m_error = 0;
        const auto query = Open(Request(test.target, test.accept));
        EXPECT_EQ(m_error, test.contentType.empty() ? kUnsupportedType : 0);
        EXPECT_EQ(query ? query->ContentType() : L"", test.contentType);
    }
}

TEST_F(CResultStreamTest, EveryTypeIsWrittenInItsWay) {
    const struct {
        DBTYPE type;
        std::size_t size;
        Value value;
        std::string json;
        std::string xml;
    } cases[] = {
        {DBTYPE_I4, 4, {L"-2147483648"}, "-2147483648", "-2147483648"},
        {DBTYPE_I8, 8, {L"-9223372036854775808"}, "-9223372036854775808", "-9223372036854775808"},
        {DBTYPE_R8, 8, {L"1e999"}, "1e999", "1e999"},
        {DBTYPE_BOOL, 2, {L"True"}, "true", "Tr"},
        {DBTYPE_BOOL, 2, {L"False"}, "false", "Fa"},
        {DBTYPE_WSTR, 100, {L""}, "\"\"", ""},
        {DBTYPE_WSTR, 3, {L"abcdef"}, "\"abc\"", "abc"},
        {DBTYPE_STR, 100, {L"x"}, "\"x\"", "x"},
        {DBTYPE_BSTR, 100, {L"x"}, "\"x\"", "x"},
        {DBTYPE_WSTR | DBTYPE_BYREF, 100, {L"x"}, "\"x\"", "x"},
        {DBTYPE_GUID, 16, {L"{0}"}, "{0}", "{0}"},
        {DBTYPE_WSTR,
         kUnknownSize,
         {std::wstring(9000, L'a')},
         "\"" + std::string(9000, 'a') + "\"",
         std::string(9000, 'a')},
        {DBTYPE_VARIANT, 16, {L"12", DBSTATUS_S_OK, DBTYPE_I8}, "12", "12"},
        {DBTYPE_VARIANT, 16, {L"12", DBSTATUS_S_OK, DBTYPE_WSTR}, "\"12\"", "12"},
        {DBTYPE_WSTR,
         100,
         {L"a\"b\\c\b\t\n\f\r\nd/\x7F\x1F"
          L"e\U0001F600"},
         "\"a\\\"b\\\\c\\b\\t\\n\\f\\nd/\x7F\x1F"
         "e\xF0\x9F\x98\x80\"",
         "a&quot;b\\c\b\t\n\f\r\nd/\x7F\x1F"
         "e\xF0\x9F\x98\x80"},
        {DBTYPE_WSTR, 100, {L"<a&'b'>"}, "\"<a&'b'>\"", "&lt;a&amp;&apos;b&apos;&gt;"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.json.substr(0, 40));
        m_fake->columns = {{L"N", test.type, test.size}};
        m_fake->rows = {{test.value}};
        EXPECT_EQ(Json(), "[{\"N\":" + test.json + "}]");
        EXPECT_THAT(Xml(), ::testing::HasSubstr("<row><N>" + test.xml + "</N></row></data>\r\n"));
    }
    EXPECT_EQ(m_fake->openObjects, 0);
}

TEST_F(CResultStreamTest, NullsAreWrittenAndFailedValuesAreLeftOut) {
    m_fake->columns = {{L"Bookmark", DBTYPE_I4, 4, 0},
                       {L"A", DBTYPE_WSTR, 10, 1},
                       {L"B", DBTYPE_I4, 4, 2},
                       {L"C", DBTYPE_VARIANT, 16, 3}};
    const Value bookmark{L"7"};
    const Value null{L"", DBSTATUS_S_ISNULL};
    const Value failed{L"x", DBSTATUS_E_CANTCONVERTVALUE};
    m_fake->rows = {
        {bookmark, null, failed, null}, {bookmark, failed, null, failed}, {bookmark, failed, failed, failed}};
    EXPECT_EQ(Json(), R"([{"A":null,"C":null},{"B":null},{}])");
    EXPECT_THAT(Xml(), ::testing::EndsWith("\r\n<row><A xsi:nil=\"true\"/><C xsi:nil=\"true\"/></row><row><B "
                                           "xsi:nil=\"true\"/></row><row></row></data>\r\n"));
}

TEST_F(CResultStreamTest, ColumnsAreWrittenInTheOrderOfTheirOrdinals) {
    m_fake->columns = {{L"B", DBTYPE_I4, 4, 2}, {L"A", DBTYPE_I4, 4, 1}};
    m_fake->rows = {{{L"2"}, {L"1"}}};
    EXPECT_EQ(Json(), R"([{"A":1,"B":2}])");
    m_fake->columns[0].ordinal = 3;
    EXPECT_THROW(Ignore(Json()), std::system_error) << "ordinal 2 is missing";
}

TEST_F(CResultStreamTest, AnEmptyRowsetIsAnEmptyDocument) {
    m_fake->columns = {{L"A"}};
    EXPECT_EQ(Json(), "[]");
    EXPECT_EQ(Answer("/a%20b", "*/*"),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
              "<?xml-stylesheet type=\"text/xsl\" href=\"/a b.xslt\"?>\r\n"
              "<data xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\r\n"
              "</data>\r\n");
}

TEST_F(CResultStreamTest, TheStylesheetHasEveryColumnAndNoRows) {
    m_fake->columns = {{L"Name", DBTYPE_WSTR}, {L"Count", DBTYPE_I4}};
    m_fake->rows = {{{L"x"}, {L"1"}}};
    EXPECT_EQ(Answer("/report.xslt", ""),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
              "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">\r\n"
              "<xsl:template match=\"/\">\r\n<html>\r\n<body>\r\n  <table>\r\n"
              "   <tr style=\"background-color:#EEEEEE\">\r\n"
              "    <th align=\"left\">Name</th>\r\n    <th align=\"right\">Count</th>\r\n"
              "   </tr>\r\n   <xsl:for-each select=\"data/row\">\r\n   <tr>\r\n"
              "    <td align=\"left\"><xsl:value-of select=\"Name\"/></td>\r\n"
              "    <td align=\"right\"><xsl:value-of select=\"Count\"/></td>\r\n"
              "   </tr>\r\n   </xsl:for-each>\r\n  "
              "</table>\r\n</body>\r\n</html>\r\n</xsl:template>\r\n</xsl:stylesheet>\r\n");
}

TEST_F(CResultStreamTest, ABodyIsTheSameHoweverItIsRead) {
    m_fake->columns = {{L"A", DBTYPE_WSTR, kUnknownSize}};
    m_fake->rows = {{{L"\u00E4\U0001F600"}}, {{std::wstring(300, L'\u20AC')}}, {{L""}}};
    const std::string whole = Json();
    for (const std::size_t step : {1, 2, 3, 5, 7, 64}) {
        const auto query = Open(Request("/report", "application/json"));
        ASSERT_TRUE(query);
        EXPECT_EQ(ReadAll(*query, step), whole) << step;
        std::uint8_t byte = 0;
        EXPECT_EQ(query->Read(&byte, 1), 0U) << "the end stays the end";
    }
}

TEST_F(CResultStreamTest, AFailureAmongTheRowsFailsTheRead) {
    m_fake->columns = {{L"A"}};
    m_fake->rows = {{{L"x"}}};
    m_fake->atEnd = DB_E_CANCELED;
    const auto query = Open(Request("/report", "application/json"));
    ASSERT_TRUE(query);
    concurrency::streams::istream body = Results::Body(query);
    std::uint8_t buffer[100];
    try {
        Ignore(body.streambuf().getn(buffer, sizeof buffer).get());
        FAIL() << "a body that looks whole";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), DB_E_CANCELED & 0xFFFF);
    }
}

TEST_F(CResultStreamTest, FormatterFilterAndTypingAreApplied) {
    m_fake->columns = {{L"A"}, {L"B", DBTYPE_VARIANT}};
    m_fake->rows = {{{L"keep"}, {L"1", DBSTATUS_S_OK, DBTYPE_I4}},
                    {{L"skip"}, {L"2"}},
                    {{L"keep"}, {L"", DBSTATUS_S_ISNULL}}};
    CHTMLDataSource::Rendering rendering;
    rendering.typing = CRowAccessor::VariantTyping::Text;
    rendering.formatter = [](std::size_t ordinal, std::wstring_view value) {
        return std::to_wstring(ordinal) + L":" + std::wstring(value);
    };
    rendering.filter = [](const CHTMLDataSource::ValueGetter& values) {
        EXPECT_EQ(values(3), nullptr);
        EXPECT_NE(values(2), nullptr);
        return std::wstring_view(values(1)) == L"skip" ? S_FALSE : S_OK;
    };
    EXPECT_EQ(Json(rendering), R"([{"A":"1:keep","B":"2:1"},{"A":"1:keep","B":null}])");
    rendering.filter = [](const auto&) { return S_FALSE; };
    EXPECT_EQ(Json(rendering), "[]");
    rendering.filter = [](const auto&) { return E_FAIL; };
    EXPECT_THROW(Ignore(Json(rendering)), std::system_error);
}

TEST_F(CResultStreamTest, ARawStreamIsTheOneValueThatThereIs) {
    m_fake->columns = {{L"A", DBTYPE_VARIANT, 16}};
    const auto stream = [](std::string bytes) {
        return Value{L"", DBSTATUS_S_OK, DBTYPE_IUNKNOWN, MakeStream(std::move(bytes))};
    };
    const std::string big(100'000, 'b');
    m_fake->rows = {{stream(big)}};
    EXPECT_EQ(Answer("/p?Stream=a/b", ""), big);
    EXPECT_EQ(m_fake->openObjects, 0);

    const auto fails = [&](std::vector<std::vector<Value>> rows) {
        m_fake->rows = std::move(rows);
        return Answer("/p?Stream=a/b", "");
    };
    EXPECT_EQ(fails({}), "error 1168");
    EXPECT_EQ(fails({{{L"", DBSTATUS_S_ISNULL}}}), "error 1168");
    EXPECT_EQ(fails({{stream("a")}, {stream("b")}}), "error 13");
    EXPECT_EQ(fails({{{L"", DBSTATUS_S_OK, DBTYPE_WSTR, CVariant(L"text")}}}), "error 13");
    m_fake->columns = {{L"A", DBTYPE_I4, 4}};
    EXPECT_EQ(fails({{{L"1"}}}), "error 13");
    m_fake->columns.push_back({L"B"});
    EXPECT_EQ(fails({{stream("a"), {L"b"}}}), "error 13");
}

TEST_F(CResultStreamTest, ARawStreamThatBreaksFailsTheRead) {
    m_fake->columns = {{L"A", DBTYPE_VARIANT, 16}};
    m_fake->rows = {{{L"", DBSTATUS_S_OK, DBTYPE_IUNKNOWN, MakeStream("ab", E_FAIL)}}};
    EXPECT_THROW(Ignore(Answer("/p?Stream=a/b", "")), std::system_error);
}

TEST_F(CResultStreamTest, LongColumnsOfARawStreamAreBoundAsTheStreamThatTheProviderHas) {
    m_fake->columns = {{L"A", DBTYPE_BYTES, 9000}};
    m_fake->rows = {{{}}};
    for (const bool offersIStreamOnly : {false, true}) {
        m_fake->offersIStreamOnly = offersIStreamOnly;
        EXPECT_EQ(Answer("/p?Stream=a/b", ""), "error 13");
        ASSERT_EQ(m_fake->bindings.size(), 1U);
        EXPECT_EQ(m_fake->bindings[0].wType, DBTYPE_IUNKNOWN);
    }
}

TEST_F(CResultStreamTest, HeadersAreParametersOfARawStreamOnly) {
    m_fake->columns = {{L"A", DBTYPE_VARIANT, 16}};
    auto request = Request("/p?Stream=a/b", "application/json");
    request.headers()["X-Test"] = "\xC3\xA4";
    Ignore(Open(request));
    EXPECT_THAT(m_fake->names, ::testing::UnorderedElementsAre(L"Header$Accept", L"Header$X-Test"));
    m_fake->names.clear();
    Ignore(Json());
    EXPECT_THAT(m_fake->names, ::testing::IsEmpty());
}

TEST_F(CResultStreamTest, ParametersAreDeclaredAndBoundInTheirOrder) {
    CHTMLDataBuffer source(CHTMLDataSource::Rendering{});
    ASSERT_EQ(source.Open(L"Provider=Fake"), S_OK);
    const std::wstring longText(100'000, L'x');
    source.SetParameter(L"a", L"1");
    source.SetParameter(L"b", CVariant::FromI4(7));
    source.SetParameter(L"a", longText);
    ASSERT_EQ(source.Execute(L"the command", IUnknown::kId, nullptr), S_OK);
    EXPECT_EQ(m_fake->text, L"the command");
    EXPECT_THAT(m_fake->names, ::testing::ElementsAre(L"a", L"b", L"a"));
    ASSERT_EQ(m_fake->arguments.size(), 3U);
    EXPECT_EQ(m_fake->arguments[0].Text(), L"1");
    EXPECT_EQ(m_fake->arguments[1].lVal, 7);
    EXPECT_EQ(m_fake->arguments[2].Text(), longText);
}

TEST_F(CResultStreamTest, AParameterThatTheCommandDoesNotKnowFails) {
    m_fake->reported = {L"A", L"b"};
    CHTMLDataBuffer source(CHTMLDataSource::Rendering{});
    ASSERT_EQ(source.Open(L"Provider=Fake"), S_OK);
    source.SetParameter(L"a", L"1");
    EXPECT_EQ(source.Execute(L"", IUnknown::kId, nullptr), E_FAIL);
}

TEST_F(CResultStreamTest, AThreadRunsOneCommandAtATime) {
    CHTMLDataBuffer outer(CHTMLDataSource::Rendering{});
    HRESULT inner = S_OK;
    m_fake->onExecute = [&](ICommand&) {
        m_fake->onExecute = nullptr;
        CHTMLDataBuffer source(CHTMLDataSource::Rendering{});
        Ignore(source.Open(L"Provider=Fake"));
        inner = source.Execute(L"", IUnknown::kId, nullptr);
    };
    ASSERT_EQ(outer.Open(L"Provider=Fake"), S_OK);
    EXPECT_EQ(outer.Execute(L"", IUnknown::kId, nullptr), S_OK);
    EXPECT_EQ(inner, DB_E_NOTREENTRANT);
    EXPECT_EQ(outer.Execute(L"", IUnknown::kId, nullptr), S_OK);
}

TEST_F(CResultStreamTest, InitialisationStringsNameTheProvider) {
    const struct {
        const wchar_t* text;
        HRESULT result;
    } cases[] = {{L"Provider=Fake", S_OK},
                 {L"x=y; provider = fAKE ;z", S_OK},
                 {L"Provider=Other", REGDB_E_CLASSNOTREG},
                 {L"", E_INVALIDARG},
                 {L"Provider=", E_INVALIDARG}};
    for (const auto& test : cases) {
        CHTMLDataBuffer source(CHTMLDataSource::Rendering{});
        EXPECT_EQ(source.Open(test.text), test.result) << ToUtf8(test.text);
    }
    m_fake->initialise = E_FAIL;
    CHTMLDataBuffer source(CHTMLDataSource::Rendering{});
    EXPECT_EQ(source.Open(L"Provider=Fake"), E_FAIL);
}

TEST_F(CResultStreamTest, ABodyIsReadInOrderAndInNoOtherWay) {
    m_fake->columns = {{L"A"}};
    const auto query = Open(Request("/report", "application/json"));
    Results::BasicBuffer buffer(query);
    const auto message = [](const auto& operation) -> std::string {
        try {
            operation();
        } catch (const std::exception& exception) {
            return exception.what();
        }
        return "nothing";
    };
    EXPECT_EQ(message([&] { buffer.seekoff(0, std::ios_base::beg, std::ios_base::in); }),
              "Unimplemented method BasicBuffer::seekoff()");
    EXPECT_EQ(message([&] { Ignore(buffer.in_avail()); }), "Unimplemented method BasicBuffer::in_avail()");
    EXPECT_EQ(message([&] { Ignore(buffer.sbumpc()); }), "Unimplemented method BasicBuffer::_sbumpc()");
    EXPECT_EQ(message([&] { Ignore(buffer.getc()); }), "Unimplemented method BasicBuffer::_getc()");
}

}  // namespace

}  // namespace quorbel
