#include <algorithm>

#include "components/http_server/Admission.h"
#include "components/http_server/Limits.h"
#include "platform/Text.h"
#include "tests/components/http_server/EngineFixture.h"

namespace quorbel {
namespace {

using boost::asio::ip::make_address;
using ::testing::HasSubstr;

class LimitsTest : public CEngineFixture {
 protected:
    static constexpr const char* kHost = "127.0.0.1";
    static constexpr const char* kPost = "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\n";

    void Serve() {
        Open(kHost, m_port, [](web::http::http_request request) { request.reply(200, BodyOf(request)); });
    }
    void ServeWithin(std::initializer_list<std::pair<const wchar_t*, std::uint32_t>> limits) {
        for (const auto& [name, number] : limits) SetLimit(name, number);
        StartServer();
        Serve();
    }
    int StatusOf(const std::string& request) {
        CHttpConnection connection(m_port);
        EXPECT_TRUE(connection.Send(request));
        return connection.Receive().value_or(CHttpReply()).status;
    }
    std::shared_ptr<IKey> Parameters() { return m_localMachine->Create(CHttpLimits::kKey).Value(); }

    const int m_port = FreePort();
};

/// A request whose request line has so many bytes.
std::string WithRequestLine(std::size_t length) {
    const std::string_view around = "GET / HTTP/1.1";
    return "GET /" + std::string(length - around.size(), 'a') + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
}

/// A request whose fields, with their line ends and the empty line, have so many bytes.
std::string WithHeader(std::size_t length) {
    const std::string_view around = "Host: 127.0.0.1\r\nX: \r\n\r\n";
    return "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nX: " + std::string(length - around.size(), 'a') + "\r\n\r\n";
}

std::string WithFields(std::size_t count) {
    std::string request = "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n";
    for (std::size_t i = 1; i < count; ++i) request += "X: \r\n";
    return request + "\r\n";
}

TEST_F(LimitsTest, WhatIsLargerThanItsBoundIsRefused) {
    ServeWithin({{L"MaxRequestLineBytes", 100},
                 {L"MaxHeaderBytes", 300},
                 {L"MaxHeaderFields", 4},
                 {L"MaxBodyBytes", 10}});
    const std::string post = kPost;
    const std::string chunked = post + "Transfer-Encoding: chunked\r\n\r\n";
    const std::string expects = "Expect: 100-continue\r\n";
    const std::pair<std::string, int> cases[] = {
        {WithRequestLine(100), 200},
        {WithRequestLine(101), 414},
        {WithRequestLine(5000), 414},
        {WithHeader(250), 200},
        {WithHeader(310), 431},
        {WithHeader(5000), 431},
        {WithFields(4), 200},
        {WithFields(5), 431},
        {post + "Content-Length: 10\r\n\r\n0123456789", 200},
        {post + "Content-Length: 11\r\n\r\n", 413},
        {post + "Content-Length: 99999999999999999999999999\r\n\r\n", 413},
        {post + expects + "Content-Length: 10\r\n\r\n", 100},
        {post + expects + "Content-Length: 11\r\n\r\n", 413},
        {chunked + "5\r\n01234\r\n5\r\n56789\r\n0\r\n\r\n", 200},
        {chunked + "5\r\n01234\r\n6\r\n", 413},
        {chunked + "b\r\n", 413},
        {chunked + "ffffffffffffffff\r\n", 413}};
    for (const auto& [request, status] : cases) EXPECT_EQ(StatusOf(request), status) << request;
}

TEST_F(LimitsTest, ARefusalEndsTheConnection) {
    ServeWithin({{L"MaxBodyBytes", 10}});
    CHttpConnection connection(m_port);
    ASSERT_TRUE(connection.Send(std::string(kPost) + "Content-Length: 11\r\n\r\n"));
    std::string reply;
    EXPECT_EQ(connection.ReceiveAll(reply), CHttpConnection::End::Clean);
    EXPECT_THAT(reply, ::testing::AllOf(HasSubstr("HTTP/1.1 413"), HasSubstr("Connection: close\r\n")));
}

TEST_F(LimitsTest, MoreConnectionsThanAreAllowedAreClosedAsTheyCome) {
    ServeWithin({{L"MaxConnections", 2}});
    CHttpConnection first(m_port);
    EXPECT_EQ(Ask(first, Get(kHost)), "200 ");
    {
        CHttpConnection second(m_port);
        EXPECT_EQ(Ask(second, Get(kHost)), "200 ");
        EXPECT_EQ(Ask(m_port, Get(kHost)), "(none)");
        EXPECT_EQ(Ask(m_port, Get(kHost)), "(none)");
    }
    WaitUntil([this] { return Ask(m_port, Get(kHost)) == "200 "; }, "a free place");
    EXPECT_EQ(Ask(first, Get(kHost)), "200 ");
}

TEST_F(LimitsTest, AClientThatLeavesInTheMiddleFreesItsPlace) {
    ServeWithin({{L"MaxConnections", 1}});
    const std::string post = kPost;
    for (const std::string& begin : {std::string("GET"), post + "Content-Length: 5\r\n\r\n01",
                                     post + "Content-Length: 5\r\nExpect: 100-continue\r\n\r\n",
                                     post + "Transfer-Encoding: chunked\r\n\r\n5\r\n01"}) {
        WaitUntil(
            [&] {
                CHttpConnection connection(m_port);
                return Ask(connection, Get(kHost)) == "200 " && connection.Send(begin);
            },
            "a free place");
    }
    WaitUntil([this] { return Ask(m_port, Get(kHost)) == "200 "; }, "a free place");
}

TEST_F(LimitsTest, ConnectionsAreCountedByAddressButForTheLoopback) {
    const struct {
        const char* first;
        const char* second;
        bool isAdmitted;
    } cases[] = {{"192.0.2.1", "192.0.2.1", false},
                 {"192.0.2.1", "192.0.2.2", true},
                 {"::ffff:192.0.2.1", "192.0.2.1", false},
                 {"::ffff:192.0.2.1", "::ffff:192.0.2.2", true},
                 {"2001:db8::1", "2001:db8::2", false},
                 {"2001:db8::1", "2001:db8:0:1::1", true},
                 {"127.0.0.1", "127.0.0.1", true},
                 {"::1", "::1", true},
                 {"::ffff:127.0.0.1", "::ffff:127.0.0.1", true}};
    for (const auto& [first, second, isAdmitted] : cases) {
        const auto admissions = std::make_shared<CAdmissions>();
        const auto key = admissions->Admit(make_address(first), {10, 1});
        ASSERT_TRUE(key.has_value());
        EXPECT_EQ(admissions->Admit(make_address(second), {10, 1}).has_value(), isAdmitted)
            << first << " " << second;
        admissions->Release(*key);
        EXPECT_EQ(admissions->Admit(make_address(first), {10, 1}).has_value(), true) << "after its release";
    }
}

TEST_F(LimitsTest, ValuesThatMakeNoSenseAreReportedAndTheirDefaultsUsed) {
    const CHttpLimits defaults;
    const auto key = Parameters();
    for (const auto& [name, member, least, most] : CHttpLimits::Values()) {
        EXPECT_GE(defaults.*member, least);
        EXPECT_LE(defaults.*member, most);
        const std::vector<std::pair<CValue, bool>> cases{
            {CValue::FromNumber32(least), true},      {CValue::FromNumber32(most), true},
            {CValue::FromNumber32(least - 1), false}, {CValue::FromNumber32(most + 1), false},
            {CValue::FromNumber64(most), false},      {CValue::FromText(std::to_wstring(most)), false}};
        for (const auto& [value, isTaken] : cases) {
            ASSERT_EQ(key->Set(name, value), ErrorCode::Success);
            std::vector<std::wstring> reports;
            const auto limits = CHttpLimits::Read(
                *m_localMachine, [&reports](const std::wstring& report) { reports.push_back(report); });
            EXPECT_EQ(reports.size(), isTaken ? 0 : 1) << ToUtf8(name);
            EXPECT_EQ(limits.*member, isTaken ? value.AsNumber32() : defaults.*member) << ToUtf8(name);
            for (const std::wstring& report : reports) {
                EXPECT_THAT(ToUtf8(report), ::testing::AllOf(HasSubstr(ToUtf8(name)),
                                                             HasSubstr(std::to_string(defaults.*member))));
            }
        }
        ASSERT_EQ(key->Set(name, CValue::FromNumber32(defaults.*member)), ErrorCode::Success);
    }
}

TEST_F(LimitsTest, ABadValueIsReportedOnceAndAgainOnlyWhenItComesBack) {
    SetLimit(L"MaxHeaderFields", 0);
    StartServer();
    const auto reported = [this] { return m_reports.All().size(); };
    EXPECT_EQ(reported(), 1u);
    // The second bad value comes after the first one was looked at again.
    SetLimit(L"MaxConnections", 0);
    WaitUntil([&] { return reported() >= 2; }, "the report");
    EXPECT_THAT(ToUtf8(m_reports.All().back()), HasSubstr("MaxConnections"));
    SetLimit(L"MaxConnections", 100);
    SetLimit(L"MaxHeaderFields", 1);
    Serve();
    WaitUntil([this] { return StatusOf(WithFields(2)) == 431; }, "the new bound");
    SetLimit(L"MaxHeaderFields", 0);
    WaitUntil([&] { return reported() >= 3; }, "the report");
    EXPECT_EQ(reported(), 3u);
}

TEST_F(LimitsTest, ChangedBoundsHoldForNewConnections) {
    Serve();
    const std::string request = std::string(kPost) + "Content-Length: 11\r\n\r\n0123456789a";
    CHttpConnection old(m_port);
    EXPECT_EQ(Ask(old, request), "200 0123456789a");
    SetLimit(L"MaxBodyBytes", 10);
    WaitUntil([&] { return StatusOf(request) == 413; }, "the new bound");
    EXPECT_EQ(Ask(old, request), "200 0123456789a");
    ASSERT_EQ(Parameters()->DeleteValue(L"MaxBodyBytes"), ErrorCode::Success);
    WaitUntil([&] { return StatusOf(request) == 200; }, "the default");
}

TEST_F(LimitsTest, EveryBoundIsDocumentedWithItsDefaultAndRange) {
    const std::string page = ReadFile(std::filesystem::path(QUORBEL_SOURCES) / "docs/configuration.md");
    const CHttpLimits defaults;
    for (const auto& [name, member, least, most] : CHttpLimits::Values()) {
        const std::string row = "\n| `" + ToUtf8(name) + "` | " + std::to_string(defaults.*member) + " | " +
                                std::to_string(least) + " to " + std::to_string(most) + " |";
        EXPECT_THAT(page, HasSubstr(row));
    }
}

}  // namespace
}  // namespace quorbel
