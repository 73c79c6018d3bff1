#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>

#include "platform/Text.h"
#include "platform/registry/SqliteRegistry.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

/// The built program, with a root folder of its own and a standard input that is no terminal.
class QbctlTest : public testing::Test {
 protected:
    struct CRun {
        int code = -1;
        std::string output;
        std::string errors;
    };

    CRun Run(std::vector<std::string> arguments, const std::string& input = {}) {
        arguments.insert(arguments.begin(), QUORBEL_PROGRAMS "/qbctl");
        std::vector<char*> words;
        for (std::string& argument : arguments) words.push_back(argument.data());
        words.push_back(nullptr);
        std::string root = "QUORBEL_ROOT=" + m_root.string();
        // Leak and error reports of sanitizers go on as they are set for the tests.
        std::vector<char*> environment{root.data()};
        for (char** variable = environ; *variable; ++variable) environment.push_back(*variable);
        environment.push_back(nullptr);

        WriteFile(m_folder / "input", input);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        const std::string names[] = {m_folder / "input", m_folder / "output", m_folder / "errors"};
        for (int descriptor = 0; descriptor < 3; ++descriptor) {
            const int flags = descriptor == 0 ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC;
            posix_spawn_file_actions_addopen(&actions, descriptor, names[descriptor].c_str(), flags, 0600);
        }
        pid_t child = 0;
        EXPECT_EQ(posix_spawn(&child, words[0], &actions, nullptr, words.data(), environment.data()), 0);
        posix_spawn_file_actions_destroy(&actions);
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(m_folder / "output"),
                ReadFile(m_folder / "errors")};
    }

    std::shared_ptr<IRegistry> Registry() { return OpenSqliteRegistry(m_root / "registry").Value(); }

    CTemporaryFolder m_folder;
    const std::filesystem::path m_root = m_folder / "state/root";
};

const std::string kKey = "HKLM\\Software\\Test";

TEST_F(QbctlTest, EveryTypeIsAddedAndShown) {
    const struct {
        const char* type;
        const char* data;
        CValue stored;
        const char* text;
        nlohmann::json json;
    } cases[] = {
        {"REG_SZ", "/docs é\U0001F600", CValue::FromText(L"/docs é\U0001F600"), "/docs é\U0001F600",
         "/docs é\U0001F600"},
        {"reg_expand_sz", "%HOME%\\x", CValue::FromText(L"%HOME%\\x", ValueType::ExpandableText), "%HOME%\\x",
         "%HOME%\\x"},
        {"REG_DWORD", "4294967295", CValue::FromNumber32(0xFFFFFFFF), "0xffffffff", 4294967295u},
        {"REG_DWORD", "0xA", CValue::FromNumber32(10), "0xa", 10},
        {"REG_QWORD", "0xFFFFFFFFFFFFFFFF", CValue::FromNumber64(~0ull), "0xffffffffffffffff", ~0ull},
        {"REG_BINARY", "00ffA5", {ValueType::Binary, std::string("\0\xFF\xA5", 3)}, "00FFA5", "00FFA5"},
        {"REG_NONE", "", {ValueType::None, ""}, "", ""},
        {"REG_MULTI_SZ", "a\\0b c", CValue::FromTexts({L"a", L"b c"}), "a\\0b c", {"a", "b c"}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.type);
        const CRun added = Run({"reg", "add", kKey, "/v", "/name", "/t", test.type, "/d", test.data, "/f"});
        ASSERT_EQ(added.code, 0) << added.errors;
        EXPECT_EQ(Registry()
                      ->LocalMachine()
                      ->Open(L"software\\test", KeyAccess::Read)
                      .Value()
                      ->Query(L"/name")
                      .Value(),
                  test.stored);
        const CRun shown = Run({"reg", "query", kKey, "/v", "/NAME"});
        EXPECT_NE(shown.output.find(std::string("    ") + test.text + "\n"), std::string::npos)
            << shown.output;
        const CRun json = Run({"reg", "query", kKey, "--json"});
        EXPECT_EQ(nlohmann::json::parse(json.output)["values"][0]["data"], test.json);
    }
}

TEST_F(QbctlTest, WhatFollowsAnOptionIsTakenAsItStands) {
    ASSERT_EQ(Run({"reg", "add", kKey, "/v", "/f", "/d", "--help"}).code, 0);
    ASSERT_EQ(Run({"reg", "add", kKey, "/v", "/t", "/t", "REG_SZ", "/d", "/d", "/f"}).code, 0);
    const auto key = Registry()->LocalMachine()->Open(L"Software\\Test", KeyAccess::Read);
    EXPECT_EQ(key.Value()->Query(L"/f").Value().AsText(), L"--help");
    EXPECT_EQ(key.Value()->Query(L"/t").Value().AsText(), L"/d");
}

TEST_F(QbctlTest, NothingIsDeletedOrReplacedWithoutConsent) {
    ASSERT_EQ(Run({"reg", "add", kKey, "/ve", "/d", "old"}).code, 0);
    ASSERT_EQ(Run({"host", "add", "localhost"}).code, 0);
    const std::vector<std::string> cases[] = {
        {"reg", "delete", kKey},
        {"reg", "delete", kKey, "/ve"},
        {"reg", "delete", kKey, "/va"},
        {"reg", "add", kKey, "/ve", "/d", "new"},
        {"reg", "export", kKey, m_folder / "input"},
        {"host", "remove", "localhost"},
    };
    for (const auto& arguments : cases) {
        const CRun run = Run(arguments, "yes\n");
        EXPECT_EQ(run.code, 1) << arguments[1];
        EXPECT_NE(run.errors.find("no terminal"), std::string::npos) << run.errors;
    }
    EXPECT_EQ(ReadFile(m_folder / "input"), "yes\n");
    const auto key = Registry()->LocalMachine()->Open(L"Software\\Test", KeyAccess::Read);
    EXPECT_EQ(key.Value()->Query(L"").Value().AsText(), L"old");

    EXPECT_EQ(Run({"reg", "delete", kKey, "/ve", "/f"}).code, 0);
    EXPECT_EQ(key.Value()->Query(L"").Error(), ErrorCode::FileNotFound);
    EXPECT_EQ(Run({"reg", "delete", kKey, "/f"}).code, 0);
    EXPECT_EQ(key.Value()->Query(L"").Error(), ErrorCode::KeyDeleted);
}

TEST_F(QbctlTest, ExitCodesTellFailuresFromMistakesInUse) {
    const struct {
        std::vector<std::string> arguments;
        int code;
    } cases[] = {
        {{}, 2},
        {{"reg"}, 2},
        {{"reg", "frob"}, 2},
        {{"reg", "query"}, 2},
        {{"reg", "query", "HKCU\\x"}, 2},
        {{"reg", "query", "HKLMx"}, 2},
        {{"reg", "query", kKey, "/x"}, 2},
        {{"reg", "query", kKey, "--frob"}, 2},
        {{"reg", "query", kKey, "/v"}, 2},
        {{"reg", "query", kKey, "/v", "a", "/V", "b"}, 2},
        {{"reg", "query", kKey, "/v", "a", "/ve"}, 2},
        {{"reg", "add", kKey, "/t", "REG_FROB"}, 2},
        {{"reg", "add", kKey, "/t", "REG_DWORD", "/d", "4294967296"}, 2},
        {{"reg", "add", kKey, "/t", "REG_DWORD", "/d", "12x"}, 2},
        {{"reg", "add", kKey, "/t", "REG_QWORD", "/d", "0x"}, 2},
        {{"reg", "add", kKey, "/t", "REG_BINARY", "/d", "abc"}, 2},
        {{"reg", "query", "\xFF"}, 2},
        {{"host", "add", "a", "--port", "0"}, 2},
        {{"host", "add", "a", "--port", "65536"}, 2},
        {{"host", "add", "a", "--protocol", "ftp"}, 2},
        {{"host", "add", "a\\b"}, 2},
        {{"reg", "query", kKey}, 1},
        {{"reg", "delete", kKey, "/f"}, 1},
        {{"reg", "delete", "HKLM", "/f"}, 1},
        {{"reg", "import", "/missing.reg"}, 1},
        {{"reg", "import", "/"}, 1},
        {{"reg", "export", kKey, "-"}, 1},
        {{"host", "remove", "missing", "/f"}, 1},
        {{"--help"}, 0},
        {{"reg", "--help"}, 0},
        {{"reg", "add", "--help"}, 0},
        {{"host", "list", "--help"}, 0},
        {{"events"}, 0},
        {{"host", "list"}, 0},
    };
    for (const auto& test : cases) {
        const CRun run = Run(test.arguments);
        const std::string shown = testing::PrintToString(test.arguments);
        EXPECT_EQ(run.code, test.code) << shown << run.errors;
        EXPECT_EQ(run.errors.empty(), test.code == 0) << shown << run.errors;
    }
    EXPECT_TRUE(Registry()->LocalMachine()->Subkeys().Value().empty());
}

TEST_F(QbctlTest, HostsAreAddedListedAndRemoved) {
    ASSERT_EQ(
        Run({"host", "add", "localhost", "--protocol", "http", "--port", "8080", "--anon-root", "/srv/www"})
            .code,
        0);
    EXPECT_EQ(Run({"host", "add", "LOCALHOST"}).code, 1);
    ASSERT_EQ(Run({"host", "add", "example.org"}).code, 0);
    std::istringstream lines(Run({"host", "list", "--json"}).output);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(nlohmann::json::parse(line)["name"], "example.org");
    std::getline(lines, line);
    const auto host = nlohmann::json::parse(line);
    EXPECT_EQ(host["port"], "8080");
    EXPECT_EQ(host["anonRoot"], "/srv/www");
    EXPECT_TRUE(host["userRoot"].is_null());
    ASSERT_EQ(Run({"host", "remove", "localhost", "--force"}).code, 0);
    EXPECT_EQ(Run({"host", "list"}).output.substr(0, 12), "example.org ");
}

TEST_F(QbctlTest, FilesGoInAndOutAndAWrongLineChangesNothing) {
    const std::string text =
        "Windows Registry Editor Version 5.00\n\n[HKLM\\Software\\Test]\n@=\"d\"\n\"n\"=dword:0000000a\n";
    ASSERT_EQ(Run({"reg", "import", "-"}, text).code, 0);
    const CRun exported = Run({"reg", "export", kKey, "-"});
    ASSERT_EQ(exported.code, 0) << exported.errors;
    ASSERT_EQ(Run({"reg", "export", kKey, m_folder / "file.reg"}).code, 0);
    EXPECT_EQ(ReadFile(m_folder / "file.reg"), exported.output);
    ASSERT_EQ(Run({"reg", "delete", kKey, "/f"}).code, 0);
    ASSERT_EQ(Run({"reg", "import", m_folder / "file.reg"}).code, 0);
    EXPECT_EQ(Run({"reg", "export", kKey, "-"}).output, exported.output);

    const CRun refused = Run({"reg", "import", "-"}, text + "\"late\"=dword:1\n\"wrong\"=1\n");
    EXPECT_EQ(refused.code, 1);
    EXPECT_NE(refused.errors.find("line 7"), std::string::npos) << refused.errors;
    EXPECT_EQ(Run({"reg", "export", kKey, "-"}).output, exported.output);
}

TEST_F(QbctlTest, TheRootIsPassableAndTheRegistryPrivate) {
    ASSERT_EQ(Run({"host", "list"}).code, 0);
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(m_root).permissions(), perms(0711));
    EXPECT_EQ(std::filesystem::status(m_root / "registry").permissions(), perms(0700));
}

}  // namespace
}  // namespace quorbel
