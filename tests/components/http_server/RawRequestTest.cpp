#include <charconv>
#include <cpprest/http_listener.h>

#include "tests/components/http_server/RawRequests.h"
#include "tests/support/service/ServiceFixture.h"
#include "tests/support/service/TestCertificate.h"
#include "tests/support/service/TlsClient.h"

namespace quorbel {
namespace {

using web::http::experimental::listener::http_listener;
using Events = CRawRequest::Events;
using Parts = std::vector<std::string_view>;

constexpr char kParameters[] = "SYSTEM\\CurrentControlSet\\Services\\HTTP\\Parameters";
/// Of a reply: the request as the handler saw it.
constexpr char kReached[] = "X-Reached";

/// Tells what has reached it: method and target in a field, the body in the body.
void Echo(web::http::http_request request) {
    web::http::http_response response(200);
    response.headers()[kReached] = request.method() + " " + request.relative_uri().to_string() + " ";
    response.set_body(request.extract_string(true).get());
    request.reply(response);
}

/// What the server has sent; none when the connection was not closed in order.
std::optional<std::string> SendPlain(int port, const Parts& parts) {
    CHttpConnection connection(port);
    for (const std::string_view part : parts) {
        if (!connection.Send(part)) return std::nullopt;
    }
    std::string received;
    for (;;) {
        const auto bytes = connection.ReceiveBytes();
        if (!bytes) return std::nullopt;
        if (bytes->empty()) return received;
        received += *bytes;
    }
}

/// The same over TLS; each part is a record.
std::optional<std::string> SendTls(int port, const Parts& parts) {
    CHttpConnection connection(port);
    CTlsClient client({});
    bool isGood = client.Take({});
    while (isGood && !client.IsEstablished()) {
        if (!connection.Send(client.Output())) return std::nullopt;
        const auto bytes = connection.ReceiveBytes();
        isGood = bytes && !bytes->empty() && client.Take(*bytes);
    }
    for (const std::string_view part : parts) {
        if (!isGood) return std::nullopt;
        client.Send(part);
        isGood = connection.Send(client.Output());
    }
    while (isGood && !client.IsClosed()) {
        const auto bytes = connection.ReceiveBytes();
        isGood = bytes && !bytes->empty() && client.Take(*bytes);
    }
    return isGood ? std::optional(client.Received()) : std::nullopt;
}

std::string Field(std::string_view head, const std::string& name) {
    const std::size_t start = head.find("\r\n" + name + ": ");
    if (start == std::string_view::npos) return "";
    const std::size_t value = start + name.size() + 4;
    return std::string(head.substr(value, head.find("\r\n", value) - value));
}

/// Takes one reply off the front; as an event, and kCloses behind it when it says so.
bool TakeReply(std::string_view& received, Events& events) {
    const std::size_t end = received.find("\r\n\r\n");
    if (!received.starts_with("HTTP/1.1 ") || end == std::string_view::npos) return false;
    const std::string_view head = received.substr(0, end + 2);
    received.remove_prefix(end + 4);
    const std::string status(head.substr(9, 3));
    if (status == "100") return true;
    const std::string reached = Field(head, kReached);
    const std::string length = Field(head, "Content-Length");
    std::size_t size = 0;
    std::from_chars(length.data(), length.data() + length.size(), size);
    if (length.empty() || size > received.size()) return false;
    events.push_back((status == "200" ? reached : status) + std::string(received.substr(0, size)));
    received.remove_prefix(size);
    if (Field(head, "Connection") == "close") events.emplace_back(CRawRequest::kCloses);
    return true;
}

Events Replies(const std::optional<std::string>& received) {
    if (!received) return {"cut off"};
    Events events;
    std::string_view rest = *received;
    while (!rest.empty()) {
        if (!TakeReply(rest, events)) {
            events.push_back("no reply: " + std::string(rest));
            break;
        }
    }
    return events;
}

/// Where to cut a row: everywhere, but for places that leave the server where another cut does too, within
/// what the row shares with the one before or within a run of the same byte.
std::vector<std::size_t> Places(std::string_view bytes, std::string_view previous) {
    const auto shared = std::mismatch(bytes.begin(), bytes.end(), previous.begin(), previous.end()).first;
    std::vector<std::size_t> places;
    for (auto cut = std::max<std::size_t>(1, static_cast<std::size_t>(shared - bytes.begin()));
         cut < bytes.size(); ++cut) {
        const std::string_view around = bytes.substr(cut < 3 ? 0 : cut - 3, 6);
        if (around.find_first_not_of(around[0]) != std::string_view::npos) places.push_back(cut);
    }
    return places;
}

/// An echoing host "localhost", plain and over TLS, with small limits.
class RawRequestTest : public CServiceFixture {
 protected:
    RawRequestTest() {
        const CHttpLimits limits = RawRequestLimits();
        const auto key = m_localMachine->Create(FromUtf8(kParameters)).Value();
        const auto set = [&key](const wchar_t* name, std::uint32_t number) {
            EXPECT_EQ(key->Set(name, CValue::FromNumber32(number)), ErrorCode::Success);
        };
        set(L"MaxRequestLineBytes", limits.requestLineBytes);
        set(L"MaxHeaderBytes", limits.headerBytes);
        set(L"MaxHeaderFields", limits.headerFields);
        set(L"MaxBodyBytes", limits.bodyBytes);
        StartHttpServer();
        const auto files = WriteTestCertificate(m_folder.Path(), "localhost", {"localhost"});
        const auto binding = key->Create(L"SslBindingInfo\\localhost:" + std::to_wstring(m_tlsPort)).Value();
        EXPECT_EQ(binding->Set(L"CertificateFile", CValue::FromText(FromUtf8(files.certificate))),
                  ErrorCode::Success);
        EXPECT_EQ(binding->Set(L"PrivateKeyFile", CValue::FromText(FromUtf8(files.privateKey))),
                  ErrorCode::Success);
        for (const auto& [scheme, port] : {std::pair("http", m_port), std::pair("https", m_tlsPort)}) {
            m_listeners.push_back(std::make_unique<http_listener>(
                web::uri(std::string(scheme) + "://localhost:" + std::to_string(port) + "/")));
            m_listeners.back()->support(Echo);
            // The library would answer these by itself.
            m_listeners.back()->support(web::http::methods::OPTIONS, Echo);
            m_listeners.back()->open().wait();
        }
    }
    ~RawRequestTest() override {
        for (const auto& listener : m_listeners) listener->close().wait();
    }

    /// The row, cut at these places, with a request behind it that ends the connection if it is looked at.
    void Expect(const CRawRequest& row, const std::vector<std::size_t>& cuts,
                const std::string& before = "") {
        Events expected = row.events;
        if (!before.empty()) expected.insert(expected.begin(), "GET /before ");
        if (expected.back() != CRawRequest::kCloses) {
            expected.emplace_back("GET /after ");
            expected.emplace_back(CRawRequest::kCloses);
        }
        const std::string bytes =
            before + Request(row) + "GET /after HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
        std::string_view rest = bytes;
        Parts parts;
        for (const std::size_t cut : cuts) {
            parts.push_back(rest.substr(0, cut));
            rest.remove_prefix(cut);
        }
        parts.push_back(rest);
        EXPECT_EQ(Replies(m_isTls ? SendTls(m_tlsPort, parts) : SendPlain(m_port, parts)), expected);
    }

    /// The row's bytes; the absolute form names the scheme that is spoken.
    std::string Request(const CRawRequest& row) const {
        std::string bytes = row.bytes;
        const std::size_t target = bytes.find(' ') + 1;
        if (m_isTls && bytes.compare(target, 7, "http://") == 0) bytes.insert(target + 4, "s");
        if (m_isTls && bytes.compare(target, 7, "HTTP://") == 0) bytes.insert(target + 4, "S");
        return bytes;
    }

    /// Every row whole and cut at each `stride`th place.
    void ExpectTable(std::size_t stride) {
        std::size_t count = 0;
        std::string_view previous;
        for (const CRawRequest& row : RawRequests()) {
            if (row.Waits()) continue;
            SCOPED_TRACE(row.Name());
            Expect(row, {});
            for (const std::size_t cut : Places(row.bytes, previous)) {
                if (count++ % stride == 0) Expect(row, {cut});
            }
            previous = row.bytes;
        }
    }

    const int m_port = FreePort();
    const int m_tlsPort = FreePort();
    bool m_isTls = false;
    std::vector<std::unique_ptr<http_listener>> m_listeners;
};

TEST_F(RawRequestTest, VerdictsAreThoseOfTheTableOnPlainConnectionsHoweverTheyAreCut) {
    ExpectTable(1);
}

TEST_F(RawRequestTest, VerdictsAreThoseOfTheTableOnTlsConnectionsHoweverTheyAreCut) {
    m_isTls = true;
    ExpectTable(5);
}

TEST_F(RawRequestTest, VerdictsAreThoseOfTheTableBehindAnotherRequestInTheSameWrite) {
    const std::string before = "GET /before HTTP/1.1\r\nHost: localhost\r\n\r\n";
    for (const bool isTls : {false, true}) {
        m_isTls = isTls;
        for (const CRawRequest& row : RawRequests()) {
            if (row.Waits()) continue;
            SCOPED_TRACE(row.Name());
            Expect(row, {}, before);
        }
    }
}

TEST_F(RawRequestTest, ATargetOfTheOtherSchemeIsMisdirected) {
    const std::string ask = " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    const std::string http = "GET http://localhost/" + ask;
    const std::string https = "GET https://localhost/" + ask;
    EXPECT_EQ(Replies(SendPlain(m_port, {http})), (Events{"GET / ", CRawRequest::kCloses}));
    EXPECT_EQ(Replies(SendPlain(m_port, {https})), (Events{"421", CRawRequest::kCloses}));
    EXPECT_EQ(Replies(SendTls(m_tlsPort, {https})), (Events{"GET / ", CRawRequest::kCloses}));
    EXPECT_EQ(Replies(SendTls(m_tlsPort, {http})), (Events{"421", CRawRequest::kCloses}));
}

/// A host of the service that publishes a folder.
class RequestPathTest : public CServiceFixture {};

TEST_F(RequestPathTest, APathNamesTheFileThatItDecodesToOnce) {
    const int port = AddDefaultHost({{L"/files", CValue::FromText(Folder("files"))}});
    Folder("files/%2e%2e");
    for (const char* name : {"%2e%2e/a", "a", "100%.txt", "a%2fb", "\xc3\xa9", "a?b", "a+b", "a|b", "%25"}) {
        WriteFile(Path("files") / name, name);
    }
    WriteFile(Path("secret"), "secret");
    Start();
    const struct {
        std::string target;
        std::string file;  ///< empty when none is found
    } cases[] = {
        {"/%252e%252e/a", "%2e%2e/a"},
        {"/%2e%2e/secret", ""},
        {"/..\\secret", ""},
        {"/%252e%252e/secret", ""},
        {"/x/%2e%2e/a", "a"},
        {"/100%25.txt", "100%.txt"},
        {"/a%252fb", "a%2fb"},
        {"/a%252Fb", ""},
        {"/a%2fb", ""},
        {"/\xc3\xa9", "\xc3\xa9"},
        {"/%C3%A9?\xff|", "\xc3\xa9"},
        {"/a%3fb", "a?b"},
        {"/a?b", "a"},
        {"/a+b", "a+b"},
        {"/a%2bb", "a+b"},
        {"/a%20b", ""},
        {"/a|b", "a|b"},
        {"/%2525", "%25"},
        {"/%25", ""},
        {"/a?x=/../../secret", "a"},
    };
    for (const auto& [target, file] : cases) {
        SCOPED_TRACE(target);
        const CHttpReply reply = Get(port, "/files" + target);
        if (file.empty()) {
            EXPECT_NE(reply.status, 200);
            EXPECT_EQ(reply.body.find("secret"), std::string::npos);
        } else {
            EXPECT_EQ(reply.status, 200);
            EXPECT_EQ(reply.body, file);
        }
    }
    EXPECT_TRUE(Stop().IsOk());
}

}  // namespace
}  // namespace quorbel
