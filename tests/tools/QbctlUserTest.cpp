#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <pty.h>
#include <sstream>
#include <termios.h>
#include <unistd.h>

#include "auth/users/Argon2.h"
#include "auth/users/UserEntry.h"
#include "platform/FileDescriptor.h"
#include "platform/Text.h"
#include "tests/tools/QbctlFixture.h"

namespace quorbel {
namespace {

using namespace std::string_literals;

const std::string kSecret = "Canary-\xC3\xA4-4711";

class QbctlUserTest : public QbctlTest {
 protected:
    void SetUp() override { ASSERT_EQ(Run({"host", "add", "a.test"}).code, 0); }

    std::unique_ptr<IKey> User(const std::wstring& name, const std::wstring& host = L"a.test") {
        auto key = Registry()->LocalMachine()->Open(
            L"Software\\Quorbel\\Quorbel HTTP Service\\Hosts\\" + host + L"\\Users\\" + name,
            KeyAccess::ReadWrite);
        return key.IsOk() ? std::move(key).Value() : nullptr;
    }
    void Set(const std::wstring& user, const std::wstring& key, const std::wstring& name,
             const CValue& value) {
        ASSERT_EQ(User(user)->Create(key).Value()->Set(name, value), ErrorCode::Success);
    }
    bool Verifies(const std::wstring& user, const std::string& candidate) {
        CArgon2 argon2;
        CPassword password;
        EXPECT_EQ(password.Read(*User(user)), ErrorCode::Success);
        EXPECT_EQ(password.Form(), PasswordForm::Hashed);
        return password.Verify(FromUtf8(candidate), argon2) == PasswordMatch::Right;
    }
    /// The lines that a command shows with --json.
    std::vector<nlohmann::json> Lines(std::vector<std::string> arguments) {
        arguments.push_back("--json");
        std::vector<nlohmann::json> objects;
        std::istringstream lines(Run(arguments).output);
        for (std::string line; std::getline(lines, line);) objects.push_back(nlohmann::json::parse(line));
        return objects;
    }
};

TEST_F(QbctlUserTest, AUserIsAddedListedAndRemoved) {
    const CRun added =
        Run({"user", "add", "anna", "--display-name", "\xC3\x84nne", "--admin"}, kSecret + "\n");
    ASSERT_EQ(added.code, 0) << added.errors;
    EXPECT_TRUE(Verifies(L"ANNA", kSecret));
    EXPECT_FALSE(Verifies(L"anna", kSecret + "\n"));
    ASSERT_EQ(Run({"user", "add", "bert"}, "second").code, 0) << "without a line's end";
    EXPECT_TRUE(Verifies(L"bert", "second"));

    const auto users = Lines({"user", "list"});
    ASSERT_EQ(users.size(), 2u);
    EXPECT_EQ(users[0].dump(), R"({"administrator":true,"displayName":"Änne","name":"anna","passkeys":0,)"
                               R"("password":"hashed","problem":null,"staysSignedIn":false})");
    EXPECT_EQ(users[1]["administrator"], false);
    EXPECT_EQ(users[1]["displayName"], "");

    const CRun again = Run({"user", "add", "Anna"}, "other\n");
    EXPECT_EQ(again.code, 1);
    EXPECT_TRUE(Verifies(L"anna", kSecret));
    EXPECT_EQ(Run({"user", "remove", "ANNA"}).code, 1) << "nobody is there to ask";
    EXPECT_EQ(Run({"user", "remove", "ANNA", "--force"}).code, 0);
    EXPECT_EQ(Lines({"user", "list"}).size(), 1u);
}

TEST_F(QbctlUserTest, NoSecretIsEverShown) {
    ASSERT_EQ(Run({"user", "add", "anna"}, kSecret + "\n").code, 0);
    CPassword password;
    const std::string hashed = User(L"anna")->Query(kPasswordValue).Value().data;
    Set(L"anna", L"", L"Cookie", CValue::FromText(L"c2VhbGVkLXRva2Vu"));
    Set(L"anna", L"WebAuthn\\1", L"Id", {ValueType::Binary, "id"});
    Set(L"anna", L"WebAuthn\\1", L"PublicKey", {ValueType::Binary, "public-key"});
    ASSERT_EQ(Run({"user", "add", "plain"}, "x\n").code, 0);
    Set(L"plain", L"", L"Password", CValue::FromText(L"Canary-plain"));
    ASSERT_EQ(Run({"user", "add", "broken"}, "x\n").code, 0);
    Set(L"broken", L"", L"Password", {ValueType::Binary, "Canary-broken"});

    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"user", "list"}, ""},
        {{"user", "list", "--json"}, ""},
        {{"user", "passkeys", "anna"}, ""},
        {{"user", "passkeys", "anna", "--json"}, ""},
        {{"user", "add", "anna"}, kSecret},
        {{"user", "add", "c\1"}, kSecret},
        {{"user", "passwd", "nobody"}, kSecret},
        {{"user", "passwd", "plain"}, kSecret + "\xFF"},
        {{"user", "admin", "anna", "--on"}, ""},
        {{"user", "sign-out", "anna"}, ""},
        {{"user", "passwd", "anna"}, kSecret + "\n"},
    };
    for (const auto& [arguments, input] : cases) {
        const CRun run = Run(arguments, input);
        const std::string all = run.output + run.errors;
        for (const std::string& secret : {"Canary"s, hashed.substr(0, 24), hashed.substr(24), "c2VhbGVk"s})
            EXPECT_EQ(all.find(secret), all.npos) << testing::PrintToString(arguments) << all;
    }
}

TEST_F(QbctlUserTest, APasswordIsOneLineOfText) {
    ASSERT_EQ(Run({"user", "add", "anna"}, kSecret).code, 0);
    const std::pair<std::string, std::string> accepted[] = {
        {"a b \n", "a b "},
        {"windows\r\n", "windows"},
        {"first\nsecond\n", "first"},
        {std::string(1000, 'x') + "\n", std::string(1000, 'x')},
    };
    for (const auto& [input, password] : accepted) {
        ASSERT_EQ(Run({"user", "passwd", "anna"}, input).code, 0) << input;
        EXPECT_TRUE(Verifies(L"anna", password)) << input;
    }
    for (const std::string& input :
         {""s, "\n"s, "\r\n"s, "bad \xC3\x28\n"s, std::string(1001, 'x') + "\n", std::string(5000, 'x')}) {
        const CRun run = Run({"user", "passwd", "anna"}, input);
        EXPECT_EQ(run.code, 1) << input;
        EXPECT_NE(run.errors.find("password"), std::string::npos) << run.errors;
    }
    EXPECT_TRUE(Verifies(L"anna", std::string(1000, 'x')));
}

TEST_F(QbctlUserTest, ANewPasswordAndASignOutMakeTheTokenVoid) {
    ASSERT_EQ(Run({"user", "add", "anna"}, "old\n").code, 0);
    for (const std::string command : {"passwd", "sign-out"}) {
        Set(L"anna", L"", L"Cookie", CValue::FromText(L"c2VhbGVk"));
        EXPECT_EQ(Lines({"user", "list"}).at(0)["staysSignedIn"], true);
        for (const char* turn : {"with a token", "without one"}) {
            const CRun run = Run({"user", command, "anna"}, "new\n");
            EXPECT_EQ(run.code, 0) << turn << run.errors;
            EXPECT_NE(run.output.find("timeout"), std::string::npos) << run.output;
            EXPECT_EQ(User(L"anna")->Query(kCookieValue).Error(), ErrorCode::FileNotFound);
        }
    }
    EXPECT_TRUE(Verifies(L"anna", "new"));
}

TEST_F(QbctlUserTest, ThatCannotBeStoredWholeIsNotStoredAtAll) {
    ASSERT_EQ(Run({"user", "add", "anna"}, "old\n").code, 0);
    Set(L"anna", L"", L"Cookie", CValue::FromText(L"c2VhbGVk"));
    EXPECT_EQ(Run({"user", "passwd", "anna"}, "new\n", 1024).code, 1);
    EXPECT_EQ(Run({"user", "add", "bert"}, "new\n", 1024).code, 1);
    EXPECT_TRUE(Verifies(L"anna", "old"));
    EXPECT_TRUE(User(L"anna")->Query(kCookieValue).IsOk());
    EXPECT_EQ(User(L"bert"), nullptr);
}

TEST_F(QbctlUserTest, RightsAreGivenAndTaken) {
    ASSERT_EQ(Run({"user", "add", "anna"}, "x\n").code, 0);
    for (const bool isOn : {true, false, true}) {
        EXPECT_EQ(Run({"user", "admin", "anna", isOn ? "--on" : "--off"}).code, 0);
        EXPECT_EQ(Lines({"user", "list"}).at(0)["administrator"], isOn);
    }
}

TEST_F(QbctlUserTest, PasskeysAreListedAndRemovedByTheirIds) {
    ASSERT_EQ(Run({"user", "add", "anna"}, "x\n").code, 0);
    EXPECT_TRUE(Lines({"user", "passkeys", "anna"}).empty());
    for (const auto& [key, id] :
         {std::pair(L"WebAuthn\\1", "\xFB\xFF"s), std::pair(L"WebAuthn\\2", "id2"s)}) {
        Set(L"anna", key, L"Id", {ValueType::Binary, id});
        Set(L"anna", key, L"PublicKey", {ValueType::Binary, "key"});
    }
    Set(L"anna", L"WebAuthn\\1", L"AAGUID", {ValueType::Binary, "\x01\x23" + std::string(13, '\0') + "\xAB"});
    const auto passkeys = Lines({"user", "passkeys", "anna"});
    ASSERT_EQ(passkeys.size(), 2u);
    EXPECT_EQ(passkeys[0].dump(),
              R"({"aaguid":"01230000-0000-0000-0000-0000000000ab","id":"-_8","key":"1"})");
    EXPECT_EQ(passkeys[1].dump(), R"({"aaguid":null,"id":"aWQy","key":"2"})");
    EXPECT_EQ(Lines({"user", "list"}).at(0)["passkeys"], 2);

    EXPECT_EQ(Run({"user", "passkeys", "anna", "--remove", "-_9"}).code, 1);
    EXPECT_EQ(Run({"user", "passkeys", "anna", "--remove", "-_8"}).code, 0);
    EXPECT_EQ(Run({"user", "passkeys", "anna", "--remove", "-_8"}).code, 1);
    EXPECT_EQ(Lines({"user", "passkeys", "anna"}).size(), 1u);
}

TEST_F(QbctlUserTest, ABrokenEntryIsNamedWithWhatIsBroken) {
    for (const char* name : {"anna", "bert", "carl"}) ASSERT_EQ(Run({"user", "add", name}, "x\n").code, 0);
    EXPECT_EQ(Run({"user", "list"}).errors, "");
    Set(L"bert", L"", L"Administrator", CValue::FromText(L"yes"));
    Set(L"carl", L"WebAuthn\\7", L"Id", {ValueType::Binary, "id"});
    const auto users = Lines({"user", "list"});
    ASSERT_EQ(users.size(), 3u);
    EXPECT_TRUE(users[0]["problem"].is_null());
    EXPECT_EQ(users[1]["problem"], "Administrator: The data is invalid.");
    EXPECT_TRUE(users[1]["password"].is_null());
    EXPECT_EQ(users[2]["problem"].get<std::string>().find("WebAuthn\\7\\PublicKey: "), 0u);
    const CRun text = Run({"user", "list"});
    EXPECT_EQ(text.code, 0);
    EXPECT_NE(text.output.find("bert  problem=Administrator"), std::string::npos) << text.output;
    EXPECT_NE(text.errors.find("warning"), std::string::npos) << text.errors;
    EXPECT_EQ(Run({"user", "admin", "bert", "--off"}).code, 0) << "which mends it";
    EXPECT_TRUE(Lines({"user", "list"}).at(1)["problem"].is_null());
}

TEST_F(QbctlUserTest, TheHostIsNamedWhenThereAreSeveral) {
    ASSERT_EQ(Run({"host", "add", "b.test"}).code, 0);
    const CRun unclear = Run({"user", "add", "anna"}, "x\n");
    EXPECT_EQ(unclear.code, 1);
    EXPECT_NE(unclear.errors.find("--host: a.test b.test"), std::string::npos) << unclear.errors;
    ASSERT_EQ(Run({"user", "add", "anna", "--host", "B.test"}, "x\n").code, 0);
    EXPECT_EQ(User(L"anna"), nullptr);
    EXPECT_NE(User(L"anna", L"b.test"), nullptr);
    EXPECT_EQ(Run({"user", "list", "--host", "c.test"}).code, 1);
    EXPECT_EQ(Lines({"user", "list", "--host", "a.test"}).size(), 0u);
}

TEST_F(QbctlUserTest, AHostIsAddedWithAKeyForItsUsers) {
    EXPECT_NE(User(L""), nullptr);
}

TEST_F(QbctlUserTest, TheEndSaysWhetherItWorked) {
    const struct {
        std::vector<std::string> arguments;
        int code;
    } cases[] = {
        {{"user"}, 2},
        {{"user", "add"}, 2},
        {{"user", "add", "anna", "secret"}, 2},
        {{"user", "add", "a\\b"}, 2},
        {{"user", "add", ""}, 2},
        {{"user", "add", std::string(256, 'a')}, 1},
        {{"user", "remove", "a\\b", "--force"}, 2},
        {{"user", "remove", "nobody", "--force"}, 1},
        {{"user", "passwd", "nobody"}, 1},
        {{"user", "admin", "nobody"}, 2},
        {{"user", "admin", "nobody", "--on", "--off"}, 2},
        {{"user", "admin", "nobody", "--on"}, 1},
        {{"user", "passkeys", "nobody"}, 1},
        {{"user", "passkeys", "nobody", "--remove", "aWQ"}, 1},
        {{"user", "sign-out", "nobody"}, 1},
        {{"user", "list"}, 0},
        {{"user", "--help"}, 0},
        {{"user", "add", "--help"}, 0},
    };
    for (const auto& test : cases) {
        const CRun run = Run(test.arguments, "x\n");
        EXPECT_EQ(run.code, test.code) << testing::PrintToString(test.arguments) << run.errors;
        EXPECT_EQ(run.errors.empty(), test.code == 0) << testing::PrintToString(test.arguments);
    }
    EXPECT_TRUE(User(L"")->Subkeys().Value().empty());
}

/// The program on a terminal of its own, which the test plays.
class QbctlUserTerminalTest : public QbctlUserTest {
 protected:
    void SetUp() override {
        QbctlUserTest::SetUp();
        int ours = -1;
        int its = -1;
        std::array<char, 100> name{};
        ASSERT_EQ(::openpty(&ours, &its, name.data(), nullptr, nullptr), 0);
        m_ours = CFileDescriptor(ours);
        m_its = CFileDescriptor(its);
        m_path = name.data();
        ASSERT_TRUE(IsEchoing());
    }
    std::unique_ptr<CSubprocess> Start(const std::vector<std::string>& arguments) {
        return std::make_unique<CSubprocess>(
            "qbctl", arguments, Environment{{"QUORBEL_ROOT", m_root.string()}}, m_path, m_path, m_path);
    }
    /// Reads what the program shows until this has come.
    void WaitFor(const std::string& text) {
        std::array<char, 256> buffer;
        while (m_shown.find(text) == m_shown.npos) {
            const ssize_t count = ::read(m_ours.Get(), buffer.data(), buffer.size());
            ASSERT_GT(count, 0);
            m_shown.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }
    void Type(const std::string& text) {
        ASSERT_EQ(::write(m_ours.Get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    bool IsEchoing() const {
        termios state{};
        EXPECT_EQ(::tcgetattr(m_its.Get(), &state), 0);
        return (state.c_lflag & ECHO) != 0;
    }

    CFileDescriptor m_ours;
    CFileDescriptor m_its;
    std::string m_path;
    std::string m_shown;
};

TEST_F(QbctlUserTerminalTest, APasswordIsAskedForTwiceAndNeverShown) {
    const auto program = Start({"user", "add", "anna"});
    WaitFor("New password: ");
    EXPECT_FALSE(IsEchoing());
    Type(kSecret + "\n");
    WaitFor("The same again: ");
    Type(kSecret + "\n");
    EXPECT_EQ(program->Wait(), 0);
    EXPECT_TRUE(IsEchoing());
    EXPECT_TRUE(Verifies(L"anna", kSecret));
    Type("end\n");
    WaitFor("end");
    EXPECT_EQ(m_shown.find("Canary"), m_shown.npos) << m_shown;
}

TEST_F(QbctlUserTerminalTest, TwoDifferentPasswordsChangeNothing) {
    const auto program = Start({"user", "add", "anna"});
    WaitFor("New password: ");
    Type("one\n");
    WaitFor("The same again: ");
    Type("two\n");
    WaitFor("not the same");
    EXPECT_EQ(program->Wait(), 1);
    EXPECT_EQ(User(L"anna"), nullptr);
}

TEST_F(QbctlUserTerminalTest, AnInterruptionLeavesTheTerminalAsItWas) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        m_shown.clear();
        const auto program = Start({"user", "add", "anna"});
        WaitFor("New password: ");
        Type("half");
        program->Signal(signal);
        EXPECT_EQ(program->Wait(), -signal);
        EXPECT_TRUE(IsEchoing());
    }
    EXPECT_EQ(User(L"anna"), nullptr);
}

}  // namespace
}  // namespace quorbel
