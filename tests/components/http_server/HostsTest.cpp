#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <sys/socket.h>

#include "tests/components/http_server/EngineFixture.h"
#include "tests/support/service/Subprocess.h"

namespace quorbel {
namespace {

/// An IPv4 address of this machine that is no loopback address; empty when it has none.
std::string OutsideAddress() {
    ifaddrs* all = nullptr;
    if (::getifaddrs(&all) != 0) return {};
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(all, ::freeifaddrs);
    for (const ifaddrs* one = all; one; one = one->ifa_next) {
        if (!one->ifa_addr || one->ifa_addr->sa_family != AF_INET || (one->ifa_flags & IFF_LOOPBACK) != 0)
            continue;
        std::array<char, NI_MAXHOST> text{};
        if (::getnameinfo(one->ifa_addr, sizeof(sockaddr_in), text.data(), text.size(), nullptr, 0,
                          NI_NUMERICHOST) == 0) {
            return text.data();
        }
    }
    return {};
}

class HostsTest : public CEngineFixture {
 protected:
    /// What each host replies to a request for it: its name.
    Listener& OpenNamed(const std::string& host) { return Open(host, m_port, Says(host)); }
    static bool CanConnect(int port, const std::string& address) {
        return CHttpConnection(port, address.c_str()).IsConnected();
    }

    const int m_port = FreePort();
};

TEST_F(HostsTest, HostsOfAPortAreToldApartByTheNameInTheRequest) {
    for (const char* host : {"a.test", "B.test", "[2001:db8::1]", "192.0.2.99"}) OpenNamed(host);
    const std::pair<std::string, const char*> cases[] = {{Get("a.test"), "200 a.test"},
                                                         {Get("A.TeSt"), "200 a.test"},
                                                         {Get("a.test:1"), "200 a.test"},
                                                         {Get("a.test:"), "200 a.test"},
                                                         {Get("a.test."), "200 a.test"},
                                                         {Get("a.test.:99"), "200 a.test"},
                                                         {Get("b.test"), "200 B.test"},
                                                         {Get("[2001:db8::1]"), "200 [2001:db8::1]"},
                                                         {Get("[2001:DB8:0:0::1]:99"), "200 [2001:db8::1]"},
                                                         {Get("192.0.2.99"), "200 192.0.2.99"},
                                                         {Get("a.test", "http://b.test/x"), "200 B.test"},
                                                         {Get("c.test", "http://B.TEST.:99?x"), "200 B.test"},
                                                         {Get("c.test"), "404 "},
                                                         {Get("a.test.."), "404 "},
                                                         {Get("aa.test"), "404 "},
                                                         {Get("test"), "404 "},
                                                         {Get("127.0.0.1"), "404 "},
                                                         {Get("*"), "404 "},
                                                         {Get("a.test", "http://c.test/"), "404 "},
                                                         {Get("a.test", "https://a.test/"), "421 "}};
    CHttpConnection connection(m_port);
    for (const auto& [request, expected] : cases) EXPECT_EQ(Ask(connection, request), expected) << request;
}

TEST_F(HostsTest, WildcardsTakeWhatNoOtherHostDoes) {
    OpenNamed("a.test");
    Listener& weak = OpenNamed("*");
    EXPECT_EQ(Ask(m_port, Get("b.test")), "200 *");
    Listener& strong = OpenNamed("+");
    const std::pair<const char*, const char*> cases[] = {{"a.test", "200 a.test"},
                                                         {"b.test", "200 +"},
                                                         {"127.0.0.1", "200 +"},
                                                         {"*", "200 +"},
                                                         {"+", "200 +"}};
    for (const auto& [host, expected] : cases) EXPECT_EQ(Ask(m_port, Get(host)), expected) << host;
    Close(strong);
    EXPECT_EQ(Ask(m_port, Get("b.test")), "200 *");
    Close(weak);
    EXPECT_EQ(Ask(m_port, Get("b.test")), "404 ");
}

TEST_F(HostsTest, AnOldClientThatNamesNoHostIsServedByTheOnlyOne) {
    const std::string request = "GET / HTTP/1.0\r\n\r\n";
    OpenNamed("a.test");
    EXPECT_EQ(Ask(m_port, request), "200 a.test");
    OpenNamed("b.test");
    EXPECT_EQ(Ask(m_port, request), "404 ") << "there are several";
    EXPECT_EQ(Ask(m_port, "GET / HTTP/1.0\r\nHost: b.test\r\n\r\n"), "200 b.test");
    OpenNamed("*");
    EXPECT_EQ(Ask(m_port, request), "200 *");
}

TEST_F(HostsTest, AHostOnTheLoopbackIsNotReachedFromOutside) {
    const std::string outside = OutsideAddress();
    if (outside.empty()) GTEST_SKIP() << "this machine has no other address";
    OpenNamed("localhost");
    EXPECT_FALSE(CanConnect(m_port, outside));
    Listener& named = OpenNamed("a.test");
    OpenNamed("127.0.0.1");
    CHttpConnection connection(m_port, outside.c_str());
    EXPECT_EQ(Ask(connection, Get("localhost")), "404 ");
    EXPECT_EQ(Ask(connection, Get("127.0.0.1")), "404 ");
    EXPECT_EQ(Ask(connection, Get("a.test")), "200 a.test");
    EXPECT_EQ(Ask(m_port, Get("localhost")), "200 localhost");
    Close(named);
    EXPECT_FALSE(CanConnect(m_port, outside)) << "no host is left that could be reached there";
    EXPECT_EQ(Ask(m_port, Get("localhost")), "200 localhost");
}

TEST_F(HostsTest, LocalhostListensOnBothLoopbackAddresses) {
    OpenNamed("localhost");
    for (const char* address : {"127.0.0.1", "::1"}) {
        CHttpConnection connection(m_port, address);
        EXPECT_EQ(Ask(connection, Get("localhost")), "200 localhost") << address;
    }
    EXPECT_FALSE(CanConnect(m_port, "127.0.0.2"));
}

TEST_F(HostsTest, AnAddressOnTheLoopbackListensOnItselfAlone) {
    OpenNamed("127.0.0.2");
    EXPECT_FALSE(CanConnect(m_port, "127.0.0.1"));
    EXPECT_FALSE(CanConnect(m_port, "::1"));
    CHttpConnection connection(m_port, "127.0.0.2");
    EXPECT_EQ(Ask(connection, Get("127.0.0.2")), "200 127.0.0.2");
    OpenNamed("[::1]");
    CHttpConnection other(m_port, "::1");
    EXPECT_EQ(Ask(other, Get("[::1]:5")), "200 [::1]");
    EXPECT_EQ(Ask(other, Get("127.0.0.2")), "200 127.0.0.2");
}

TEST_F(HostsTest, AnOpenThatFailsSaysWhyAndLeavesTheOthersAlone) {
    OpenNamed("a.test");
    const std::pair<const char*, const char*> cases[] = {{"a.test", "another host"},
                                                         {"A.TEST.", "another host"},
                                                         {"a@b.test", "host"},
                                                         {"[::zz]", "host"},
                                                         {"a[b", "host"}};
    for (const auto& [host, said] : cases) {
        EXPECT_THAT(OpenFailure(host, m_port), ::testing::HasSubstr(said)) << host;
    }
    EXPECT_EQ(Ask(m_port, Get("a.test")), "200 a.test");
    EXPECT_EQ(Ask(m_port, Get("b.test")), "404 ");
}

TEST_F(HostsTest, APortThatAnotherProgramHasIsNamed) {
    for (const char* host : {"localhost", "a.test", "127.0.0.1"}) {
        const CTakenPort taken("127.0.0.1");
        EXPECT_THAT(OpenFailure(host, taken.Port()),
                    ::testing::AllOf(::testing::HasSubstr(std::to_string(taken.Port())),
                                     ::testing::HasSubstr("in use")))
            << host;
        EXPECT_FALSE(CanConnect(taken.Port(), "::1")) << "what could be opened is closed again";
    }
}

TEST_F(HostsTest, AHostThatCannotBeOpenedLeavesTheSocketsOfTheOthers) {
    const CTakenPort taken("127.0.0.1");
    Open("127.0.0.2", taken.Port(), Says("mine"));
    EXPECT_NE(OpenFailure("a.test", taken.Port()), "");
    CHttpConnection connection(taken.Port(), "127.0.0.2");
    EXPECT_EQ(Ask(connection, Get("127.0.0.2")), "200 mine");
}

TEST_F(HostsTest, AHostComesGoesAndMovesWithoutDisturbingAnothersConnections) {
    OpenNamed("localhost");
    CHttpConnection connection(m_port);
    const auto isServed = [&] { return Ask(connection, Get("localhost")) == "200 localhost"; };
    ASSERT_TRUE(isServed());
    Listener& named = OpenNamed("a.test");  // now on all addresses
    EXPECT_TRUE(isServed());
    EXPECT_EQ(Ask(connection, Get("a.test")), "200 a.test");
    Close(named);  // and back
    EXPECT_TRUE(isServed());
    EXPECT_EQ(Ask(connection, Get("a.test")), "404 ");
    const int other = FreePort();
    Listener& moved = Open("a.test", other, Says("moved"));
    EXPECT_TRUE(isServed());
    EXPECT_EQ(Ask(other, Get("a.test")), "200 moved");
    Close(moved);
    OpenNamed("a.test");
    EXPECT_TRUE(isServed());
    EXPECT_EQ(Ask(connection, Get("a.test")), "200 a.test");
}

TEST_F(HostsTest, TheLastHostFreesThePort) {
    Listener& only = OpenNamed("a.test");
    CHttpConnection connection(m_port);
    ASSERT_EQ(Ask(connection, Get("a.test")), "200 a.test");
    Close(only);
    EXPECT_FALSE(CanConnect(m_port, "127.0.0.1"));
    std::string rest;
    EXPECT_EQ(connection.ReceiveAll(rest), CHttpConnection::End::Clean);
    EXPECT_EQ(rest, "");
    OpenNamed("b.test");
    EXPECT_EQ(Ask(m_port, Get("b.test")), "200 b.test");
}

TEST_F(HostsTest, AHostIsClosedOnlyAfterItsHandlersHaveReturned) {
    CWaitingRoom room;
    std::atomic<bool> hasReturned = false;
    Listener& host = Open("a.test", m_port, [&](const web::http::http_request& request) {
        room.Wait();
        request.reply(200);
        hasReturned = true;
    });
    CHttpConnection connection(m_port);
    ASSERT_TRUE(connection.Send(Get("a.test")));
    WaitUntil([&] { return room.Entered() == 1; }, "the handler");
    std::thread closing([&] {
        Close(host);
        EXPECT_TRUE(hasReturned);
    });
    room.Open();
    closing.join();
    EXPECT_EQ(connection.Receive().value_or(CHttpReply()).status, 200);
}

TEST_F(HostsTest, SocketsThatTheServiceManagerPassesAreUsed) {
    // A listening socket of our own: without it the program could not open the port.
    const CTakenPort taken("127.0.0.1");
    const CTemporaryFolder root;
    WriteFile(root / "site/.GET.txt", "home");
    const Environment variables{{"QUORBEL_ROOT", root.Path().string()}};
    ASSERT_EQ(RunProgram("qbctl",
                         {"host", "add", "127.0.0.1", "--protocol", "http", "--port",
                          std::to_string(taken.Port()), "--user-root", (root / "site").string()},
                         variables),
              0);
    ASSERT_EQ(RunProgram("QBHTTPService", {"-debug"}, variables), 1) << "it had no socket";
    const CSubprocess service("QBHTTPService", {"-debug"}, variables, root / "out", root / "err", "/dev/null",
                              std::nullopt, taken.Descriptor());
    CHttpConnection connection(taken.Port());
    const auto reply = connection.Request("GET", "/");
    ASSERT_TRUE(reply.has_value()) << ReadFile(root / "err");
    EXPECT_EQ(reply->body, "home");
}

}  // namespace
}  // namespace quorbel
