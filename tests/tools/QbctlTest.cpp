#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unistd.h>

#include "platform/Text.h"
#include "platform/eventlog/EventSink.h"
#include "tests/tools/QbctlFixture.h"

namespace quorbel {
namespace {

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
        {{"cert", "bind", "a.test", "--certificate", "c", "--key", "k"}, 2},
        {{"cert", "bind", "a.test:0", "--certificate", "c", "--key", "k"}, 2},
        {{"cert", "bind", "::1:443", "--certificate", "c", "--key", "k"}, 2},
        {{"cert", "bind", "a.test:443", "--certificate", "c"}, 2},
        {{"cert", "bind", "a.test:443", "--certificate", "/missing", "--key", "/missing"}, 1},
        {{"cert", "remove", "a\\b:443"}, 2},
        {{"cert", "remove", "a.test:443"}, 1},
        {{"cert", "create", "a b"}, 2},
        {{"cert", "create", "*:443"}, 2},
        {{"cert", "create", "[::zz]"}, 2},
        {{"cert", "create", "[:::]"}, 2},
        {{"cert", "create", "a.test", "--name", "a.*.test"}, 2},
        {{"cert", "create", "a.test", "--days", "0"}, 2},
        {{"cert", "create", "a.test", "--days", "3651"}, 2},
        {{"cert", "create", "a.test", "--out", "/missing"}, 1},
        {{"cert", "create", "--help"}, 0},
        {{"cert", "list"}, 0},
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

TEST_F(QbctlTest, ARegistryFolderThatOthersMayChangeIsRefused) {
    ASSERT_EQ(Run({"host", "list"}).code, 0);
    using std::filesystem::perms;
    const std::pair<int, int> cases[] = {{0700, 0}, {0755, 0}, {0720, 1}, {0702, 1}};
    for (const auto& [mode, code] : cases) {
        std::filesystem::permissions(m_root / "registry", perms(mode));
        const CRun run = Run({"host", "list"});
        EXPECT_EQ(run.code, code) << std::oct << mode;
        EXPECT_EQ(run.errors.find("Access is denied") != std::string::npos, code == 1) << run.errors;
    }
    std::filesystem::permissions(m_root / "registry", perms(0700));
    // Only the superuser can give a folder away.
    if (::chown((m_root / "registry").c_str(), 12345, 12345) != 0) return;
    EXPECT_EQ(Run({"host", "list"}).code, ::geteuid() == 0 ? 1 : 0);
}

TEST_F(QbctlTest, TextsOfOthersAreShownWithoutPlayingTricksOnTheTerminal) {
    const struct {
        const char* raw;
        const char* shown;
    } cases[] = {
        {"\x1B[2J", "\\x1B[2J"},        {"\x7F", "\\x7F"},           {"\xC2\x9B", "\\x9B"},
        {"\r\nfake", "\\x0D\\x0Afake"}, {"\xE2\x80\xA8", "\\u2028"}, {"\xE2\x80\xA9", "\\u2029"},
        {"\xE2\x80\x8E", "\\u200E"},    {"\xE2\x80\x8F", "\\u200F"}, {"\xE2\x80\xAA", "\\u202A"},
        {"\xE2\x80\xAE", "\\u202E"},    {"\xE2\x81\xA6", "\\u2066"}, {"\xE2\x81\xA9", "\\u2069"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.shown);
        const std::string raw = std::string("a") + test.raw + "b";
        const std::string shown = std::string("a") + test.shown + "b";
        ASSERT_EQ(Run({"reg", "add", kKey, "/v", "v", "/d", raw, "/f"}).code, 0);
        ASSERT_EQ(Run({"host", "add", "h", "--anon-root", raw}).code, 0);
        CEventEntry event{};
        event.text = FromUtf8(raw);
        std::filesystem::remove(m_root / "events.jsonl");
        CreateFileSink(m_root, EventEcho::None)->Write(event);

        const CRun runs[] = {Run({"reg", "query", kKey}), Run({"host", "list"}), Run({"events"}),
                             Run({"reg", "query", kKey + "\\" + raw})};
        for (const CRun& run : runs) {
            const std::string text = run.output + run.errors;
            EXPECT_NE(text.find(shown), std::string::npos) << text;
            EXPECT_EQ(text.find(test.raw), std::string::npos) << text;
        }
        const std::string json = Run({"reg", "query", kKey, "--json"}).output;
        EXPECT_EQ(nlohmann::json::parse(json)["values"][0]["data"], raw);
        ASSERT_EQ(Run({"host", "remove", "h", "/f"}).code, 0);
    }
}

TEST_F(QbctlTest, ALimitOfFileSizeIsAFailureThatLeavesTheRegistryAsItWas) {
    ASSERT_EQ(Run({"reg", "add", kKey, "/v", "v", "/d", "before", "/f"}).code, 0);
    const std::string large(100'000, 'x');
    const CRun run = Run({"reg", "add", kKey, "/v", "v", "/d", large, "/f"}, {}, 64 * 1024);
    EXPECT_EQ(run.code, 1);
    EXPECT_NE(run.errors.find("not enough space"), std::string::npos) << run.errors;
    const auto key = Registry()->LocalMachine()->Open(L"Software\\Test", KeyAccess::Read);
    EXPECT_EQ(key.Value()->Query(L"v").Value().AsText(), L"before");
}

}  // namespace
}  // namespace quorbel
