#include <gtest/gtest.h>

#include "components/http_server/BodyDecoder.h"
#include "components/http_server/Exchange.h"
#include "components/http_server/HostName.h"
#include "components/http_server/RequestHead.h"
#include "platform/UrlPath.h"
#include "tests/components/http_server/RawRequests.h"

namespace quorbel {
namespace {

using Events = CRawRequest::Events;

/// Reads requests as a connection does, and keeps what comes of them.
class CReader {
 public:
    void Take(std::string_view bytes) {
        m_input.append(bytes);
        while (!m_isClosed && Advance()) {
        }
    }
    /// What has come of the input until now.
    Events Result() const {
        Events result = m_events;
        const bool isBetween = m_input.empty() && !m_isInBody;
        if (m_isClosed) result.emplace_back(CRawRequest::kCloses);
        if (!m_isClosed && !isBetween) result.emplace_back(CRawRequest::kWaits);
        return result;
    }

 private:
    bool Advance() { return m_isInBody ? ReadBody() : ReadHead(); }

    bool ReadHead() {
        switch (m_parser.Parse(m_input, m_limits)) {
            case CRequestHeadParser::Progress::Incomplete: return false;
            case CRequestHeadParser::Progress::Refused: return Refuse(m_parser.Refusal());
            case CRequestHeadParser::Progress::Complete: break;
        }
        const CRequestHead& head = m_parser.Head();
        const bool hasPath = head.target != CRequestHead::Target::Authority;
        const auto path = CUrlPath::Parse(hasPath ? head.path : "/");
        if (!std::holds_alternative<CUrlPath>(path)) return Refuse(400);
        const auto exchange = std::make_shared<CExchange>(nullptr);
        const auto request = exchange->MakeRequest(head, std::get<CUrlPath>(path).Encoded(), "");
        m_target = request.method() + " " + request.relative_uri().to_string() + " ";
        m_isFound = head.authority.empty() || CanonicalHost(head.authority) == "localhost";
        m_keepsAlive = head.keepsAlive;
        m_decoder.Reset(head);
        m_input.erase(0, m_parser.Length());
        m_parser.Reset();
        m_isInBody = true;
        return true;
    }

    bool ReadBody() {
        std::string_view rest = m_input;
        const auto progress = m_decoder.Take(rest, m_body, m_limits);
        m_input.erase(0, m_input.size() - rest.size());
        if (progress == CBodyDecoder::Progress::Incomplete) return false;
        if (progress == CBodyDecoder::Progress::Refused) return Refuse(m_decoder.Refusal());
        m_events.push_back(m_isFound ? m_target + m_body : "404");
        m_body.clear();
        m_isInBody = false;
        m_isClosed = !m_keepsAlive;
        return !m_input.empty();
    }

    bool Refuse(int status) {
        m_events.push_back(std::to_string(status));
        m_isClosed = true;
        return false;
    }

    const CHttpLimits m_limits = RawRequestLimits();
    CRequestHeadParser m_parser;
    CBodyDecoder m_decoder;
    std::string m_input;
    std::string m_body;
    std::string m_target;
    bool m_isFound = false;
    bool m_keepsAlive = true;
    bool m_isInBody = false;
    bool m_isClosed = false;
    Events m_events;
};

TEST(RawRequests, HaveTheirVerdictsHoweverTheyArrive) {
    for (const CRawRequest& row : RawRequests()) {
        SCOPED_TRACE(row.Name());
        const std::string_view bytes = row.bytes;
        CReader whole;
        whole.Take(bytes);
        EXPECT_EQ(whole.Result(), row.events);
        for (std::size_t cut = 1; cut < bytes.size(); ++cut) {
            CReader reader;
            reader.Take(bytes.substr(0, cut));
            reader.Take(bytes.substr(cut));
            EXPECT_EQ(reader.Result(), row.events) << "cut at " << cut;
        }
        CReader trickled;
        for (const char byte : bytes) trickled.Take({&byte, 1});
        EXPECT_EQ(trickled.Result(), row.events) << "byte by byte";
    }
}

TEST(RawRequests, HaveTheirVerdictsBehindOthersInTheSameWrite) {
    const std::string before = "POST /before HTTP/1.1\r\nHost: localhost\r\nContent-Length: 1\r\n\r\nb";
    const std::string after = "GET /after HTTP/1.1\r\nHost: localhost\r\n\r\n";
    for (const CRawRequest& row : RawRequests()) {
        if (row.Waits()) continue;
        SCOPED_TRACE(row.Name());
        Events expected = row.events;
        expected.insert(expected.begin(), "POST /before b");
        if (expected.back() != CRawRequest::kCloses) expected.emplace_back("GET /after ");
        CReader reader;
        reader.Take(before + row.bytes + after);
        EXPECT_EQ(reader.Result(), expected);
    }
}

CRequestHead Parse(const std::string& bytes) {
    CRequestHeadParser parser;
    EXPECT_EQ(parser.Parse(bytes, CHttpLimits()), CRequestHeadParser::Progress::Complete);
    return parser.Head();
}

TEST(RequestHead, FieldsKeepTheirOrderAndLoseBlanksAroundThem) {
    const std::string bytes = "GET / HTTP/1.1\r\nHost:a\r\nX: \t b \t c \r\nx:\r\n\r\n";
    std::vector<std::pair<std::string_view, std::string_view>> fields;
    for (const auto& field : Parse(bytes).fields) fields.emplace_back(field.name, field.value);
    EXPECT_EQ(fields, (decltype(fields){{"Host", "a"}, {"X", "b \t c"}, {"x", ""}}));
}

TEST(RequestHead, AuthorityAndSchemeAreTheTargetsBeforeTheHostField) {
    using Scheme = CRequestHead::Scheme;
    const struct {
        const char* line;
        Scheme scheme;
        const char* authority;
    } cases[] = {
        {"GET / HTTP/1.1", Scheme::None, "h:1"},
        {"GET http://t:2/ HTTP/1.1", Scheme::Http, "t:2"},
        {"GET HTTPS://t?a HTTP/1.1", Scheme::Https, "t"},
        {"OPTIONS * HTTP/1.1", Scheme::None, "h:1"},
        {"CONNECT [::1]:2 HTTP/1.1", Scheme::None, "[::1]:2"},
    };
    for (const auto& [line, scheme, authority] : cases) {
        SCOPED_TRACE(line);
        const std::string bytes = std::string(line) + "\r\nHost: h:1\r\n\r\n";
        const CRequestHead head = Parse(bytes);
        EXPECT_EQ(head.scheme, scheme);
        EXPECT_EQ(head.authority, authority);
    }
}

TEST(RequestHead, OnlyAClientOfHttp11WaitsForContinue) {
    const std::string fields = "Host: h\r\nExpect: 100-continue\r\nContent-Length: 1\r\n\r\n";
    const std::string current = "POST / HTTP/1.1\r\n" + fields;
    const std::string old = "POST / HTTP/1.0\r\n" + fields;
    EXPECT_TRUE(Parse(current).expectsContinue);
    EXPECT_FALSE(Parse(old).expectsContinue);
}

TEST(RequestHead, DefaultLimitsAreReachedAndNotExceeded) {
    const auto status = [](const std::string& bytes) {
        CRequestHeadParser parser;
        const auto progress = parser.Parse(bytes, CHttpLimits());
        return progress == CRequestHeadParser::Progress::Complete ? 200 : parser.Refusal();
    };
    const auto line = [](std::size_t size) {
        return "GET /" + std::string(size - 14, 'a') + " HTTP/1.1\r\nHost: h\r\n\r\n";
    };
    EXPECT_EQ(status(line(8192)), 200);
    EXPECT_EQ(status(line(8193)), 414);
    const auto section = [](std::size_t size) {
        return "GET / HTTP/1.1\r\nHost: h\r\nX:" + std::string(size - 13, 'x') + "\r\n\r\n";
    };
    EXPECT_EQ(status(section(32768)), 200);
    EXPECT_EQ(status(section(32769)), 431);
    const auto fields = [](int count) {
        std::string bytes = "GET / HTTP/1.1\r\nHost: h\r\n";
        for (int i = 1; i < count; ++i) bytes += "X:\r\n";
        return bytes + "\r\n";
    };
    EXPECT_EQ(status(fields(100)), 200);
    EXPECT_EQ(status(fields(101)), 431);
    const auto length = [](int count) {
        return "GET / HTTP/1.1\r\nHost: h\r\nContent-Length: " + std::to_string(count) + "\r\n\r\n";
    };
    EXPECT_EQ(status(length(1048576)), 200);
    EXPECT_EQ(status(length(1048577)), 413);
}

TEST(BodyDecoder, ExtensionsOfAllChunksTogetherAreBounded) {
    // Each chunk takes one byte of the body and 1,000 of extensions.
    const std::string chunk = "1;" + std::string(999, 'a') + "\r\nx\r\n";
    CRequestHead head;
    head.isChunked = true;
    CBodyDecoder decoder;
    decoder.Reset(head);
    std::string body;
    for (int i = 0; i < 8; ++i) {
        std::string_view input = chunk;
        ASSERT_EQ(decoder.Take(input, body, CHttpLimits()), CBodyDecoder::Progress::Incomplete);
    }
    std::string_view input = chunk;
    EXPECT_EQ(decoder.Take(input, body, CHttpLimits()), CBodyDecoder::Progress::Refused);
    EXPECT_EQ(decoder.Refusal(), 400);
    EXPECT_EQ(body, "xxxxxxxx");
}

}  // namespace
}  // namespace quorbel
