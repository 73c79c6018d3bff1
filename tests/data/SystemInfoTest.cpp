#include "data/HTTPObject.h"
#include "data/SystemInfoHandler.h"
#include "data/VectorRequestHandler.h"

namespace quorbel {
namespace {

using web::http::http_request;

std::pair<std::wstring, std::string> Ask(CVectorRequestHandler& handler, const char* accept) {
    http_request request(web::http::methods::GET);
    if (accept) request.headers()["Accept"] = accept;
    const auto response = handler.CreateResponse(request, UserIdentity(), {});
    EXPECT_EQ(response->StatusCode(), 200);
    EXPECT_EQ(response->Cache(), CacheClass::Session);
    EXPECT_TRUE(response->Headers().empty());
    concurrency::streams::container_buffer<std::string> body;
    response->Body().read_to_end(body).wait();
    return {response->ContentType(), body.collection()};
}

TEST(SystemInfo, IsWrittenAsTheRequestAccepts) {
    CVectorRequestHandler handler("SystemInfo", [] { return CHTTPSystem("7 \"<").Take(); });
    const std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<SystemInfo><Version>7 \"<</Version></SystemInfo>";
    const std::string json = "{\"Version\":\"7 \"<\"}";
    const struct {
        const char* accept;
        bool isJson;
    } cases[] = {
        {nullptr, false},
        {"application/json", true},
        {"application/json;q=0.5", true},
        {"text/html,application/json", true},
        {"text/html, application/json", false},  // the blank belongs to the item
        {"application/xml,application/json", false},
        {"*/*", false},
        {"Application/JSON", false},
        {"image/png", false},
        {"", false},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.accept ? test.accept : "(no field)");
        const auto [type, body] = Ask(handler, test.accept);
        EXPECT_EQ(type, test.isJson ? L"application/json" : L"text/xml");
        EXPECT_EQ(body, test.isJson ? json : xml);
    }
}

TEST(HTTPObject, ListsLiteralsAndNamesNest) {
    CHTTPObject::List inner;
    inner.Append({"n", std::make_shared<CHTTPObject::Container<CHTTPObject::String>>(
                           CHTTPObject::String(CHTTPObject::Kind::Literal, "5"))});
    inner.Append({"s", std::make_shared<CHTTPObject::Container<CHTTPObject::String>>(
                           CHTTPObject::String(CHTTPObject::Kind::String, "five"))});
    const auto value = std::make_shared<CHTTPObject::Container<CHTTPObject::List>>(inner);
    EXPECT_EQ(CHTTPObject("", value).Json(), "{\"n\":5, \"s\":\"five\"}");
    EXPECT_EQ(CHTTPObject("list", value).Json(), "{\"list\":{\"n\":5, \"s\":\"five\"}}");
    EXPECT_EQ(CHTTPObject("list", value).Xml(), "<list><n>5</n><s>five</s></list>");
    EXPECT_EQ(CHTTPObject("", value).Xml(), "<n>5</n><s>five</s>");
}

}  // namespace
}  // namespace quorbel
