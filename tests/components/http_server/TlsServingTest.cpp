#include <cpprest/containerstream.h>

#include "components/certificates/CertificateBinding.h"
#include "platform/Text.h"
#include "tests/components/http_server/EngineFixture.h"
#include "tests/support/service/ServiceFixture.h"
#include "tests/support/service/TlsConnection.h"

namespace quorbel {
namespace {

using ::testing::HasSubstr;

class TlsServingTest : public CEngineFixture {
 protected:
    CTestCertificate Write(const std::string& name) {
        return WriteTestCertificate(m_folder.Path(), name, {name});
    }
    /// A host with a certificate for its name, that replies with its name.
    Listener& OpenHttps(const std::string& host) {
        Bind(host, m_port, Write(host == "*" ? "any" : host));
        return Open(host, m_port, Says(host), "https");
    }

    const int m_port = FreePort();
};

TEST_F(TlsServingTest, EachHostShowsItsCertificateAndServesItsRequests) {
    for (const char* host : {"a.test", "b.test"}) OpenHttps(host);
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        for (const auto& [asked, name] : {std::pair("a.test", "a.test"), std::pair("B.test", "b.test")}) {
            CTlsConnection connection(m_port, {.version = version, .name = asked});
            ASSERT_TRUE(connection.IsEstablished());
            EXPECT_EQ(connection.ShownName(), name);
            for (int i = 0; i < 2; ++i) {
                EXPECT_EQ(Ask(connection, Get(name)), std::string("200 ") + name) << version;
            }
        }
    }
}

TEST_F(TlsServingTest, ARequestForAnotherHostThanTheHandshakesIsMisdirected) {
    for (const char* host : {"a.test", "b.test"}) OpenHttps(host);
    const struct {
        const char* serverName;
        std::string request;
        const char* expected;
    } cases[] = {{"a.test", Get("b.test"), "421 "},
                 {"a.test", Get("c.test"), "421 "},
                 {"a.test", Get("a.test", "https://b.test/"), "421 "},
                 {"a.test", Get("b.test", "https://a.test/"), "200 a.test"},
                 {"a.test", Get("a.test", "http://a.test/"), "421 "},
                 {"a.test", Get("A.test.:99"), "200 a.test"},
                 {"c.test", Get("c.test"), "404 "},
                 {"c.test", Get("d.test"), "404 "},
                 {"c.test", Get("a.test"), "421 "},
                 {"", Get("a.test"), "200 a.test"},
                 {"", Get("b.test"), "200 b.test"},
                 {"", Get("c.test"), "404 "}};
    for (const auto& [serverName, request, expected] : cases) {
        CTlsConnection connection(m_port, {.name = serverName});
        ASSERT_TRUE(connection.IsEstablished()) << serverName;
        EXPECT_EQ(Ask(connection, request), expected) << serverName << " " << request;
        EXPECT_EQ(Ask(connection, request), expected) << "the connection goes on";
    }
}

TEST_F(TlsServingTest, AWildcardTakesUnknownServerNames) {
    OpenHttps("a.test");
    OpenHttps("*");
    CTlsConnection connection(m_port, {.name = "c.test"});
    EXPECT_EQ(connection.ShownName(), "any");
    EXPECT_EQ(Ask(connection, Get("c.test")), "200 *");
    EXPECT_EQ(Ask(connection, Get("d.test")), "200 *");
    EXPECT_EQ(Ask(connection, Get("a.test")), "421 ");
}

TEST_F(TlsServingTest, AHostWithoutCertificateDoesNotOpenAndSaysWhatToDo) {
    EXPECT_THAT(OpenFailure("a.test", m_port, "https"), HasSubstr("qbctl cert bind"));
    EXPECT_FALSE(CHttpConnection(m_port).IsConnected());
    Bind("a.test", m_port, {"/nowhere.crt", "/nowhere.key"});
    EXPECT_THAT(OpenFailure("a.test", m_port, "https"), HasSubstr("/nowhere.crt"));
    OpenHttps("a.test");
}

TEST_F(TlsServingTest, APortServesOneOfHttpAndHttps) {
    Bind("a.test", m_port, Write("a.test"));
    Listener& plain = Open("b.test", m_port, Says("plain"));
    EXPECT_THAT(OpenFailure("a.test", m_port, "https"), HasSubstr(std::to_string(m_port)));
    EXPECT_EQ(Ask(m_port, Get("b.test")), "200 plain");
    Close(plain);
    OpenHttps("a.test");
    EXPECT_THAT(OpenFailure("b.test", m_port, "http"), HasSubstr(std::to_string(m_port)));
}

TEST_F(TlsServingTest, ReplacedFilesAreShownToNewConnections) {
    OpenHttps("a.test");
    CTlsConnection old(m_port, {.name = "a.test"});
    EXPECT_EQ(Ask(old, Get("a.test")), "200 a.test");
    const auto serial = [](const CTlsConnection& connection) {
        const X509* shown = SSL_get0_peer_certificate(connection.Tls().Connection());
        const ASN1_INTEGER* number = shown ? X509_get0_serialNumber(shown) : nullptr;
        return number ? std::string(reinterpret_cast<const char*>(number->data), number->length) : "";
    };
    const std::string before = serial(old);
    Write("a.test");
    WaitUntil([&] { return serial(CTlsConnection(m_port, {.name = "a.test"})) != before; },
              "the new certificate");
    EXPECT_EQ(Ask(old, Get("a.test")), "200 a.test");
}

TEST_F(TlsServingTest, SessionsAreResumedUnderTheirNameAlone) {
    for (const char* host : {"a.test", "b.test"}) OpenHttps(host);
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        CTlsConnection first(m_port, {.version = version, .name = "a.test"});
        EXPECT_EQ(Ask(first, Get("a.test")), "200 a.test");
        const CSessionPointer session = first.Tls().Session();
        for (const auto& [name, isResumed] : {std::pair("a.test", 1), std::pair("b.test", 0)}) {
            CTlsConnection again(m_port, {.version = version, .name = name, .session = session.get()});
            EXPECT_EQ(Ask(again, Get(name)), std::string("200 ") + name) << version;
            EXPECT_EQ(SSL_session_reused(again.Tls().Connection()), isResumed) << version << " " << name;
        }
    }
}

TEST_F(TlsServingTest, APlainRequestToATlsPortEndsTheConnection) {
    OpenHttps("a.test");
    EXPECT_EQ(Ask(m_port, Get("a.test")), "(none)");
    CTlsConnection connection(m_port, {.name = "a.test"});
    EXPECT_EQ(Ask(connection, Get("a.test")), "200 a.test");
}

TEST_F(TlsServingTest, ARequestWithItsGoodbyeIsStillAnswered) {
    OpenHttps("a.test");
    CTlsConnection connection(m_port, {.name = "a.test"});
    ASSERT_TRUE(connection.SendLast(Get("a.test")));
    EXPECT_EQ(connection.Receive().value_or(CHttpReply()).body, "a.test");
}

TEST_F(TlsServingTest, TheLastReplyEndsWithAGoodbye) {
    OpenHttps("a.test");
    CTlsConnection connection(m_port, {.name = "a.test"});
    ASSERT_TRUE(connection.Send(Get("a.test", "/", "Connection: close\r\n")));
    std::string reply;
    EXPECT_EQ(connection.ReceiveAll(reply), CHttpConnection::End::Clean);
    EXPECT_TRUE(reply.ends_with("a.test"));
    EXPECT_TRUE(connection.Tls().IsClosed());
}

TEST_F(TlsServingTest, AReplyThatFailsHasNoGoodbye) {
    Bind("a.test", m_port, Write("a.test"));
    Open("a.test", m_port, Replies([] {
             Response response(200);
             response.set_body(concurrency::streams::bytestream::open_istream(std::string("begin")), 10,
                               "text/plain");
             return response;
         }),
         "https");
    CTlsConnection connection(m_port, {.name = "a.test"});
    ASSERT_TRUE(connection.Send(Get("a.test")));
    std::string reply;
    EXPECT_EQ(connection.ReceiveAll(reply), CHttpConnection::End::Aborted);
    EXPECT_FALSE(connection.Tls().IsClosed());
}

class TlsServiceTest : public CServiceFixture {
 protected:
    int AddHttpsHost(const std::wstring& name) {
        const int port = FreePort();
        const auto files = WriteTestCertificate(m_folder.Path(), "host", {ToUtf8(name)});
        const auto key = m_localMachine->Create(std::wstring(kCertificateBindingsKey) + L"\\" + name + L":" +
                                                std::to_wstring(port));
        for (const auto& [value, path] : {std::pair(kCertificateFileValue, files.certificate),
                                          std::pair(kPrivateKeyFileValue, files.privateKey)}) {
            EXPECT_EQ(key.Value()->Set(value, CValue::FromText(FromUtf8(path))), ErrorCode::Success);
        }
        AddHost(name, port,
                {{L"Protocol", CValue::FromText(L"https")},
                 {L"User Root", CValue::FromText(Folder("root"))},
                 {L"/files", CValue::FromText(Folder("files"))}});
        return port;
    }
};

TEST_F(TlsServiceTest, FilesOfAnySizeArriveWholeAndAskForTls) {
    std::string content(40 << 20, '\0');
    for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * i >> 9);
    const int port = AddHttpsHost(L"a.test");
    std::filesystem::create_directories(Path("files"));
    for (const std::size_t size : {0u, 1u, 16'384u, 16'385u, 65'536u, 1'000'003u, 40u << 20}) {
        WriteFile(Path("files/" + std::to_string(size) + ".bin"), content.substr(0, size));
    }
    Start();
    CTlsConnection connection(port, {.name = "a.test"});
    for (const std::size_t size : {0u, 1u, 16'384u, 16'385u, 65'536u, 1'000'003u, 40u << 20}) {
        ASSERT_TRUE(
            connection.Send("GET /files/" + std::to_string(size) + ".bin HTTP/1.1\r\nHost: a.test\r\n\r\n"));
        const auto reply = connection.Receive();
        ASSERT_TRUE(reply.has_value()) << size;
        EXPECT_EQ(reply->status, 200) << size;
        EXPECT_TRUE(reply->body == content.substr(0, size)) << size;
        EXPECT_NE(reply->Header(L"Strict-Transport-Security"), "(none)");
    }
    ASSERT_TRUE(connection.Send(
        "GET /files/1000003.bin HTTP/1.1\r\nHost: a.test\r\nRange: bytes=70001-500000\r\n\r\n"));
    const auto range = connection.Receive();
    ASSERT_TRUE(range.has_value());
    EXPECT_EQ(range->status, 206);
    EXPECT_TRUE(range->body == content.substr(70'001, 430'000));
}

}  // namespace
}  // namespace quorbel
