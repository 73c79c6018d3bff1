#include "LibService/MessageIds.h"
#include "platform/crypto/Base64.h"
#include "tests/auth/AuthenticationFixture.h"

namespace quorbel {
namespace {

const std::string kForm = "Content-Type: application/x-www-form-urlencoded\r\n";
const std::string kJson = "Content-Type: application/json\r\n";
const std::string kFromPage = "Origin: http://site\r\nReferer: http://site/page?q\r\n";

class CAuthenticationEndpointTest : public CAuthenticationFixture {
 protected:
    CAuthenticationEndpointTest() {
        AddUser(L"ann", L"secret");
        AddUser(L"b\u00f6b", L"100% + \u00e4", false);
        AddUser(L"root", L"r", true);
    }
    CHttpReply Post(std::string_view body, const std::string& headerLines = kForm) const {
        const auto reply = CHttpConnection(m_port).Request("POST", "/auth", headerLines, body);
        EXPECT_TRUE(reply.has_value()) << "no whole reply to " << body;
        return reply.value_or(CHttpReply());
    }
    static std::string TokenOf(const CHttpReply& reply) {
        const std::string field = reply.Header(L"Set-Cookie");
        return field.substr(0, 7) == "QbAuth=" ? field.substr(7, 16) : std::string();
    }
    std::string SignedIn(std::string_view user, std::string_view password, std::string_view more = "") const {
        return TokenOf(
            Post("user=" + std::string(user) + "&password=" + std::string(password) + std::string(more)));
    }
    /// "status|Location|Set-Cookie", a token shown as T.
    static std::string Shown(const CHttpReply& reply) {
        std::string cookie = reply.Header(L"Set-Cookie");
        if (const std::string token = TokenOf(reply); token.size() == 16 && cookie[7] != ';') {
            cookie.replace(7, 16, "T");
        }
        return std::to_string(reply.status) + "|" + reply.Header(L"Location") + "|" + cookie;
    }

    int m_port = 0;
};

TEST_F(CAuthenticationEndpointTest, EveryOutcomeIsAStatus) {
    m_port = StartHost();
    const std::string ann = kForm + "Cookie: QbAuth=" + SignedIn("ann", "secret") + "\r\n";
    const std::string root = kForm + "Cookie: QbAuth=" + SignedIn("root", "r") + "\r\n";
    const std::string none = "|(none)|(none)";
    const std::string token = "|QbAuth=T; HttpOnly";
    const std::string gone = "|QbAuth=; expires=Thu, 01 Jan 1970 00:00:00 GMT";
    struct CCase {
        std::string headerLines;
        std::string body;
        std::string expected;
    };
    const std::vector<CCase> cases{
        // Signing in.
        {kForm, "user=ann&password=secret", "302|/" + token},
        {kForm, "user=ANN&password=secret&action=anything", "302|/" + token},
        {kForm + kFromPage, "user=ann&password=secret", "302|/page?q" + token},
        {kForm + "Origin: null\r\nReferer: http://site/page\r\n", "user=ann&password=secret",
         "302|/" + token},
        {kForm + "Origin: http://a-long-site\r\nReferer: http://site/\r\n", "user=ann&password=secret",
         "302|/" + token},
        {kForm + "Origin: http://site\r\nReferer: http://site\r\n", "user=ann&password=secret",
         "200|(none)" + token},
        {kForm, "user=ann&password=secret&OnSuccess=/home%3Fa", "302|/home?a" + token},
        {kForm, "user=ann&password=secret&OnSuccess=https://else.where/x",
         "302|https://else.where/x" + token},
        {kForm, "user=ann&password=secret&OnSuccess=a%20b%0D%0AX:%20y", "400|(none)" + token},
        {kForm, "user=ann&password=secret&OnSuccess=%0D%0ASet-Cookie:%20x=y", "400|(none)" + token},
        {kForm, "user=ann&password=secret&OnSuccess=%C3%A4", "400|(none)" + token},
        {kForm, "user=ann&password=wrong", "401" + none},
        {kForm + kFromPage, "user=ann&password=wrong&OnFailure=/again", "302|/again|(none)"},
        {kForm, "user=ann&password=wrong&OnFailure=%22", "400" + none},
        {kForm, "user=ann&password=", "401" + none},
        {kForm, "user=ann", "401" + none},
        {kForm, "password=secret", "401" + none},
        {kForm, "user=nobody&password=secret", "401" + none},
        {kForm, "", "401" + none},
        {kForm, "user=b%C3%B6b&password=100%25+%2B+%C3%A4&OnSuccess=/", "302|/" + token},
        {kForm, "user=ann&password=100%+x", "400" + none},
        {kForm, "user=ann&password=secret&unused=%", "400" + none},
        {kForm, "user=ann&password=secret&x=%FF&OnFailure=/bad", "302|/bad|(none)"},
        {ann, "password=secret", "302|/" + token},
        // Signing out.
        {kForm, "action=logout", "302|/" + gone},
        {ann, "action=LogOut&OnSuccess=/bye", "302|/bye" + gone},
        // Changing passwords; the statuses of each rule are checked elsewhere.
        {kForm, "action=change-password&password=secret&newPassword=x&confirmPassword=x", "401" + none},
        {ann, "action=change-password&password=secret&newPassword=x&confirmPassword=X", "400" + none},
        {ann, "action=change-password&password=secret&newPassword=x", "400" + none},
        {ann, "action=change-password&password=secret&confirmPassword=", "400" + none},
        {ann, "action=change-password&password=wrong&confirmPassword=", "401" + none},
        {ann, "action=change-password&user=root&newPassword=x&confirmPassword=x", "403" + none},
        {root, "action=change-password&user=nobody&newPassword=x&confirmPassword=x", "404" + none},
        {root, "action=Change-Password&user=ann&newPassword=secret&confirmPassword=secret&OnSuccess=/ok",
         "302|/ok|(none)"},
        // Passkeys.
        {kForm, "action=webauthn-authenticate&user=nobody", "401" + none},
        {kForm, "action=webauthn-authenticate&user=ann", "200" + none},
        {kForm, "action=webauthn-register&user=ann&password=wrong", "401" + none},
        {kForm, "action=webauthn-register&user=ann", "401" + none},
        {kForm, "action=webauthn-register&password=secret", "401" + none},
        {kForm, "action=WebAuthn-Register&user=ann&password=secret", "200" + none},
        // JSON.
        {"", "{}", "400" + none},
        {"Content-Type: text/plain; charset=utf-8\r\n", "{}", "400" + none},
        {"Content-Type: Application/JSON ; charset=utf-8\r\n", "{}", "401" + none},
        {"Content-Type: x; application/ json\r\n", "{}", "401" + none},
        {kJson, "{", "400" + none},
        {kJson, "{\"action\":1}", "400" + none},
        {kJson, "{\"action\":\"\xFF\"}", "400" + none},
        {kJson, std::string(200'000, '['), "400" + none},
        {kJson, std::string(17, '[') + std::string(17, ']'), "400" + none},
        {kJson, std::string(16, '[') + std::string(16, ']'), "401" + none},
        {kJson, "[]", "401" + none},
        {kJson, R"({"action":"sign-in","OnFailure":"/json"})", "302|/json|(none)"},
        {kJson, R"({"action":"webauthn-register"})", "400" + none},
        {kJson, R"({"action":"webauthn-authenticate","credentials":{"id":3}})", "400" + none},
        {kJson, R"({"action":"webauthn-authenticate","credentials":{"id":"AQ"}})", "404" + none},
        {"", "", "401" + none},
    };
    for (const auto& [headerLines, body, expected] : cases) {
        EXPECT_EQ(Shown(Post(body, headerLines)), expected) << headerLines << body.substr(0, 200);
    }
    const std::string again = kForm + "Cookie: QbAuth=" + SignedIn("ann", "secret") + "\r\n";
    EXPECT_EQ(Shown(Post("action=change-password&password=secret&newPassword=&confirmPassword=", again)),
              "200|(none)" + token);
}

TEST_F(CAuthenticationEndpointTest, OnlyPostReachesIt) {
    m_port = StartHost();
    const std::string cookie = "Cookie: QbAuth=" + SignedIn("ann", "secret") + "\r\n";
    EXPECT_EQ(Get(m_port, "/auth", cookie).status, 303) << "as what does not exist";
    const auto options = CHttpConnection(m_port).Request("OPTIONS", "/auth");
    EXPECT_EQ(options.value_or(CHttpReply()).Header(L"Allow"), "GET, POST");
}

TEST_F(CAuthenticationEndpointTest, TheCookieDecidesWhichFoldersAreServed) {
    WriteFile(Path("anon/.GET.html"), "anon");
    WriteFile(Path("anon/same.GET.html"), "anon's");
    WriteFile(Path("root/.GET.html"), "user");
    WriteFile(Path("root/same.GET.html"), "user's");
    WriteFile(Path("root/page.GET.html"), "page");
    WriteFile(Path("admin/secret.GET.html"), "admin");
    m_port = StartHost();
    const auto statusOf = [&](const std::string& token, const char* target) {
        const CHttpReply reply = Get(m_port, target, "Cookie: QbAuth=" + token + "\r\n");
        return std::to_string(reply.status) + reply.body;
    };
    const std::string ann = SignedIn("ann", "secret");
    const std::string root = SignedIn("root", "r", "&remember=ON");
    EXPECT_EQ(statusOf("", "/same"), "200anon's");
    EXPECT_EQ(statusOf("", "/page"), "303");
    EXPECT_EQ(statusOf(ann, "/same"), "200user's");
    EXPECT_EQ(statusOf(ann, "/page"), "200page");
    EXPECT_EQ(statusOf(ann, "/secret"), "303");
    EXPECT_EQ(statusOf(root, "/secret"), "200admin");
    m_clock.Turn(kTimeout + std::chrono::seconds(1));
    EXPECT_EQ(statusOf(ann, "/page"), "303");
    EXPECT_EQ(statusOf(root, "/secret"), "200admin") << "a long-lived token has no end";
    // Logging out is the browser's affair.
    Ignore(Post("action=logout", kForm + "Cookie: QbAuth=" + root + "\r\n"));
    EXPECT_EQ(statusOf(root, "/secret"), "200admin");
    const CHttpReply two =
        Get(m_port, "/secret", "Cookie: a=b\r\nCookie: QbAuth=" + root + "\r\nCookie: c\r\n");
    EXPECT_EQ(two.body, "admin") << "several fields count as one";
}

TEST_F(CAuthenticationEndpointTest, AHostThatIsReplacedHasItsOwnUsers) {
    WriteFile(Path("root/.GET.html"), "user");
    m_port = StartHost();
    const std::string token = SignedIn("ann", "secret");
    {
        const auto transaction = m_registry->Begin().Value();
        DeleteHost(kHost);
        ASSERT_NE(UserKey(L"new"), nullptr);
        const auto key = HostKey(kHost);
        ASSERT_EQ(key->Set(L"Protocol", CValue::FromText(L"http")), ErrorCode::Success);
        ASSERT_EQ(key->Set(L"Port", CValue::FromText(std::to_wstring(m_port))), ErrorCode::Success);
        ASSERT_EQ(key->Set(L"User Root", CValue::FromText(Folder("root"))), ErrorCode::Success);
        ASSERT_EQ(key->Set(L"Anon Root", CValue::FromText(Folder("anon"))), ErrorCode::Success);
        ASSERT_EQ(key->Set(L"Admin Root", CValue::FromText(Folder("admin"))), ErrorCode::Success);
        AddLocation(kHost, L"/auth", L"Authenticate");
        ASSERT_EQ(transaction->Commit(), ErrorCode::Success);
    }
    const auto isUnknown = [&] {
        const auto reply =
            CHttpConnection(m_port).Request("POST", "/auth", kForm, "user=ann&password=secret");
        return reply && reply->status == 401;
    };
    WaitUntil(isUnknown, "the new host");
}

TEST_F(CAuthenticationEndpointTest, SecretsAppearNowhereButInTheRequestsTrace) {
    AddUser(L"eve", L"canary-password");
    m_port = StartHost();
    std::wstring told;
    const auto post = [&](std::string_view body, const std::string& headerLines = kForm) {
        const CHttpReply reply = Post(body, headerLines);
        told += FromUtf8(reply.body);
        for (const auto& [name, value] : reply.headers) told += name + FromUtf8(value);
        return reply;
    };
    const std::string token = TokenOf(Post("user=eve&password=canary-password&remember=on"));
    const std::string session = SignedIn("eve", "canary-password");
    ASSERT_EQ(token.size() + session.size(), 32u);
    const std::string cookie = kForm + "Cookie: QbAuth=" + token + "\r\n";
    Ignore(post("user=eve&password=canary-wrong"));
    m_registry->Faults().Fail(RegistryOperation::Set, ErrorCode::DiskFull, 0);
    Ignore(
        Post("action=change-password&password=canary-password&newPassword=canary-new&"
             "confirmPassword=canary-new",
             cookie));
    m_registry->Faults().FailNothing();
    m_keys->Fail(NTE_FAIL);
    Ignore(
        Post("action=change-password&password=canary-password&newPassword=canary-new&"
             "confirmPassword=canary-new",
             cookie));
    m_keys->Fail(kKeyStorageSuccess);
    Ignore(post("action=webauthn-register&user=eve&password=canary-new"));
    Ignore(Post(R"({"action":"webauthn-register","user":{"displayName":"canary-new"}})", kJson));

    const std::string hash = UserKey(L"eve")->Query(L"Password").Value().data;
    const std::string file = ReadFile(*std::filesystem::directory_iterator(Path("keys")));
    ASSERT_EQ(file.size(), 76u);
    std::wstring key;
    for (char byte : file.substr(12, 32)) key += ToHex(static_cast<unsigned char>(byte), 2);
    const std::vector<std::wstring> canaries{L"canary-", FromUtf8(hash.substr(0, 24)),
                                             FromUtf8(hash.substr(24)), key,
                                             FromUtf8(ToBase64(file.substr(12, 32)))};
    const auto events = m_events.Take();
    EXPECT_GE(events.size(), 3u) << "the failures were reported";
    for (const CEventEntry& entry : events) {
        told += entry.text;
        for (const std::wstring& insert : entry.strings) told += insert + L"\n";
    }
    for (const auto& sentence : m_httpReports.All()) told += sentence;
    EXPECT_EQ(told.find(FromUtf8(token)), told.npos);
    EXPECT_EQ(told.find(FromUtf8(session)), told.npos);
    told += m_trace.Texts();
    for (const std::wstring& canary : canaries) EXPECT_EQ(told.find(canary), told.npos) << ToUtf8(canary);
}

}  // namespace
}  // namespace quorbel
