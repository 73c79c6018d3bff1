#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <thread>

#include "platform/Error.h"
#include "platform/Root.h"
#include "platform/com/Com.h"
#include "platform/crypto/KeyStorage.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

using std::filesystem::perms;
using Key = std::unique_ptr<IStoredKey>;

const std::string kName = "key.example.test";

class KeyStorageTest : public testing::Test {
 protected:
    /// As a process does that was started anew.
    SECURITY_STATUS Open(Key& key, std::string_view name = kName) {
        return OpenKeyStorageProvider(m_folder.Path())->OpenKey(name, key);
    }
    SECURITY_STATUS Create(Key& key, std::string_view name = kName) {
        return OpenKeyStorageProvider(m_folder.Path())->CreatePersistedKey(name, key);
    }
    std::size_t Files() {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(m_folder.Path()),
                                                      std::filesystem::directory_iterator()));
    }

    CTemporaryFolder m_folder;
};

/// Every text that differs from this one in one bit, and every beginning of it.
std::vector<std::string> Damaged(const std::string& text) {
    std::vector<std::string> all;
    for (std::size_t i = 0; i < text.size(); ++i) {
        all.push_back(text.substr(0, i));
        for (int bit = 0; bit < 8; ++bit) {
            all.push_back(text);
            all.back()[i] = static_cast<char>(text[i] ^ (1 << bit));
        }
    }
    return all;
}

TEST_F(KeyStorageTest, AKeyOpensWhatItSealedInAnEarlierLife) {
    Key made;
    EXPECT_EQ(Open(made), NTE_BAD_KEYSET);
    ASSERT_EQ(Create(made), kKeyStorageSuccess);
    std::string once;
    std::string twice;
    ASSERT_EQ(made->Encrypt("token", once), kKeyStorageSuccess);
    ASSERT_EQ(made->Encrypt("token", twice), kKeyStorageSuccess);
    EXPECT_NE(once, twice);
    EXPECT_EQ(once.size(), 12 + 5 + 16u);
    EXPECT_EQ(once.find("token"), once.npos);

    Key opened;
    ASSERT_EQ(Open(opened), kKeyStorageSuccess);
    for (const std::string& sealed : {once, twice}) {
        std::string plain;
        EXPECT_EQ(opened->Decrypt(sealed, plain), kKeyStorageSuccess);
        EXPECT_EQ(plain, "token");
    }
    EXPECT_EQ(std::filesystem::status(m_folder / kName).permissions(), perms(0600));
    EXPECT_EQ(Files(), 1u);
}

TEST_F(KeyStorageTest, NothingElseIsOpened) {
    Key key;
    Key other;
    ASSERT_EQ(Create(key), kKeyStorageSuccess);
    ASSERT_EQ(Create(other, "other.example.test"), kKeyStorageSuccess);
    std::string sealed;
    ASSERT_EQ(key->Encrypt("token", sealed), kKeyStorageSuccess);
    std::string plain = "before";
    for (const std::string& damaged : Damaged(sealed)) {
        ASSERT_EQ(key->Decrypt(damaged, plain), NTE_BAD_DATA);
        ASSERT_EQ(plain, "before");
    }
    EXPECT_EQ(other->Decrypt(sealed, plain), NTE_BAD_DATA);
    EXPECT_EQ(key->Decrypt(sealed, plain), kKeyStorageSuccess);
}

TEST_F(KeyStorageTest, ADamagedFileIsAnErrorAndStays) {
    Key key;
    ASSERT_EQ(Create(key), kKeyStorageSuccess);
    const std::string content = ReadFile(m_folder / kName);
    std::vector<std::string> cases = Damaged(content);
    cases.push_back(content + '\0');
    for (const std::string& damaged : cases) {
        WriteFile(m_folder / kName, damaged);
        ASSERT_EQ(Open(key), NTE_BAD_DATA) << testing::PrintToString(damaged);
        ASSERT_EQ(Create(key), NTE_BAD_DATA);
        ASSERT_EQ(ReadFile(m_folder / kName), damaged);
    }
    WriteFile(m_folder / kName, content);
    EXPECT_EQ(Open(key), kKeyStorageSuccess);
}

TEST_F(KeyStorageTest, OnlyARegularFileOfItsOwnIsAKey) {
    Key key;
    ASSERT_EQ(Create(key), kKeyStorageSuccess);
    std::filesystem::copy_file(m_folder / kName, m_folder / "copy");
    EXPECT_EQ(Open(key, "copy"), NTE_BAD_DATA) << "the file of another key";
    std::filesystem::create_directory(m_folder / "folder");
    EXPECT_EQ(Open(key, "folder"), NTE_BAD_DATA);
    EXPECT_EQ(Create(key, "folder"), NTE_BAD_DATA);
    std::filesystem::create_symlink(m_folder / "nowhere", m_folder / "link");
    const auto isLink = HResultFromWin32(ToNumber(ErrorCode::CantResolveFilename));
    EXPECT_EQ(Open(key, "link"), isLink);
    EXPECT_EQ(Create(key, "link"), isLink);
    EXPECT_FALSE(std::filesystem::exists(m_folder / "nowhere"));
}

TEST_F(KeyStorageTest, ANameIsAHostNameInForm) {
    Key key;
    for (const std::string& name :
         {std::string(), std::string("../a"), std::string(".a"), std::string("a/b"), std::string("A"),
          std::string("a b"), std::string(1, '\0'), std::string("\xC3\xA4"), std::string(201, 'a')}) {
        EXPECT_EQ(Open(key, name), NTE_INVALID_PARAMETER) << name;
        EXPECT_EQ(Create(key, name), NTE_INVALID_PARAMETER) << name;
    }
    EXPECT_EQ(Files(), 0u);
    EXPECT_EQ(Create(key, std::string(200, 'a')), kKeyStorageSuccess);
}

TEST_F(KeyStorageTest, CallersAtOnceEndWithOneKey) {
    constexpr std::size_t kCallers = 8;
    std::array<Key, kCallers> keys;
    std::vector<std::thread> callers;
    for (Key& key : keys) {
        callers.emplace_back([this, &key] { EXPECT_EQ(Create(key), kKeyStorageSuccess); });
    }
    for (std::thread& caller : callers) caller.join();
    std::string sealed;
    ASSERT_EQ(keys[0]->Encrypt("token", sealed), kKeyStorageSuccess);
    for (const Key& key : keys) {
        std::string plain;
        EXPECT_EQ(key->Decrypt(sealed, plain), kKeyStorageSuccess);
    }
    EXPECT_EQ(Files(), 1u);
}

TEST_F(KeyStorageTest, AWriteThatFailsHalfWayLeavesNothing) {
    const auto before = ::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    Key key;
    for (rlim_t largest : {0, 1, 40}) {
        const rlimit small{largest, limit.rlim_max};
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
        const SECURITY_STATUS status = Create(key);
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
        EXPECT_EQ(status, HResultFromWin32(ToNumber(ErrorCode::FileTooLarge)));
        EXPECT_EQ(key, nullptr);
        EXPECT_EQ(Files(), 0u);
    }
    ::signal(SIGXFSZ, before);
    EXPECT_EQ(Create(key), kKeyStorageSuccess);
}

TEST_F(KeyStorageTest, AFolderThatIsMissingIsNotMade) {
    const auto keys = OpenKeyStorageProvider(m_folder / "missing");
    Key key;
    EXPECT_EQ(keys->OpenKey(kName, key), NTE_BAD_KEYSET);
    EXPECT_EQ(keys->CreatePersistedKey(kName, key), HResultFromWin32(ToNumber(ErrorCode::FileNotFound)));
}

TEST_F(KeyStorageTest, TheFolderOfKeysIsForNobodyElse) {
    ASSERT_EQ(::setenv("QUORBEL_ROOT", (m_folder / "root").c_str(), 1), 0);
    const auto folder = OpenKeysFolder();
    ASSERT_TRUE(folder.IsOk());
    EXPECT_EQ(folder.Value(), m_folder / "root/keys");
    EXPECT_EQ(std::filesystem::status(folder.Value()).permissions(), perms(0700));
    std::filesystem::permissions(folder.Value(), perms(0770));
    EXPECT_EQ(OpenKeysFolder().Error(), ErrorCode::AccessDenied);
    ::unsetenv("QUORBEL_ROOT");
}

}  // namespace
}  // namespace quorbel
