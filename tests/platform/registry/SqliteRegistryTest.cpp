#include <sqlite3.h>
#include <sys/stat.h>

#include "platform/Text.h"
#include "platform/registry/RegistryStore.h"
#include "tests/platform/registry/RegistryFixture.h"

namespace quorbel {
namespace {

using SqliteRegistryTest = RegistryTest;

TEST_F(SqliteRegistryTest, NamesOfEveryPlaneAreFoundWithoutCaseAndKeepTheirSpelling) {
    const auto root = OpenRegistry()->LocalMachine();
    const struct {
        std::wstring created;
        std::wstring found;
    } cases[] = {
        {L"Software", L"SOFTWARE"},
        {L"/docs/Übersicht", L"/DOCS/üBERSICHT"},
        {L"Ελλάδα", L"ελλάΔΑ"},
        {L"\U00010400\U0001F600", L"\U00010428\U0001F600"},
        {std::wstring(255, L'x'), std::wstring(255, L'X')},
        {L"a' OR 1=1; --", L"A' or 1=1; --"},
    };
    for (const auto& [created, found] : cases) {
        Ignore(Create(*root, created));
        const auto key = root->Open(found, KeyAccess::ReadWrite);
        ASSERT_TRUE(key.IsOk()) << ToUtf8(created);
        EXPECT_EQ(key.Value()->Set(created, CValue::FromText(created)), ErrorCode::Success);
        EXPECT_EQ(key.Value()->Query(found).Value().AsText(), created);
        EXPECT_EQ(key.Value()->Values().Value().front().name, created);
        const auto names = root->Subkeys().Value();
        EXPECT_EQ(std::count(names.begin(), names.end(), created), 1) << ToUtf8(created);
    }
}

TEST_F(SqliteRegistryTest, SubkeysAndValuesComeInFoldedOrder) {
    const auto root = OpenRegistry()->LocalMachine();
    for (const wchar_t* name : {L"b", L"\U0001F600", L"C", L"Ä", L"a", L"_", L"\uFFFD"}) {
        Ignore(Create(*root, name));
        EXPECT_EQ(root->Set(name, {}), ErrorCode::Success);
    }
    const std::vector<std::wstring> ordered{L"_", L"a", L"b", L"C", L"Ä", L"\uFFFD", L"\U0001F600"};
    EXPECT_EQ(root->Subkeys().Value(), ordered);
    std::vector<std::wstring> values;
    for (const CNamedValue& value : root->Values().Value()) values.push_back(value.name);
    EXPECT_EQ(values, ordered);
}

TEST_F(SqliteRegistryTest, LimitsAreRefusedAndLeaveNothing) {
    const auto root = OpenRegistry()->LocalMachine();
    std::wstring deepest = L"d";
    for (int i = 1; i < 512; ++i) deepest += L"\\d";
    const struct {
        std::wstring path;
        ErrorCode expected;
    } keys[] = {
        {std::wstring(256, L'x'), ErrorCode::FilenameExcedsRange},
        {L"a\nb", ErrorCode::InvalidName},
        {std::wstring(L"a\0b", 3), ErrorCode::InvalidName},
        {std::wstring(1, static_cast<wchar_t>(0xD800)), ErrorCode::InvalidName},
        {std::wstring(1, static_cast<wchar_t>(0x110000)), ErrorCode::InvalidName},
        {deepest + L"\\d", ErrorCode::BadPathname},
    };
    for (const auto& [path, expected] : keys) EXPECT_EQ(root->Create(path).Error(), expected);
    EXPECT_TRUE(root->Subkeys().Value().empty());
    EXPECT_TRUE(root->Create(deepest).IsOk());

    EXPECT_EQ(root->Set(std::wstring(16'384, L'v'), {}), ErrorCode::FilenameExcedsRange);
    EXPECT_EQ(root->Set(L"a\rb", {}), ErrorCode::InvalidName);
    CValue large{ValueType::Binary, std::string(16 * 1024 * 1024 + 1, 'x')};
    EXPECT_EQ(root->Set(L"large", large), ErrorCode::FileTooLarge);
    EXPECT_TRUE(root->Values().Value().empty());
    large.data.pop_back();
    EXPECT_EQ(root->Set(std::wstring(16'383, L'v'), large), ErrorCode::Success);
    EXPECT_EQ(root->Query(std::wstring(16'383, L'V')).Value(), large);
}

TEST_F(SqliteRegistryTest, ValuesKeepTypeAndBytesWhetherTheyFitOrNot) {
    const auto root = OpenRegistry()->LocalMachine();
    const CValue values[] = {
        {ValueType::None, ""},
        {ValueType::Text, std::string("a\0b", 3)},
        {ValueType::Number32, "x"},
        {ValueType::Binary, std::string(3, '\0')},
        {static_cast<ValueType>(0xFFFFFFFF), "\xFF\x00\xFE"},
    };
    for (const CValue& value : values) {
        EXPECT_EQ(root->Set(L"v", value), ErrorCode::Success);
        EXPECT_EQ(root->Query(L"V").Value(), value);
    }
}

TEST_F(SqliteRegistryTest, AHandleOnADeletedKeyStaysDeletedWhenTheKeyIsCreatedAgain) {
    const auto registry = OpenRegistry();
    const auto root = registry->LocalMachine();
    const auto key = Create(*root, L"A\\B");
    Ignore(Create(*root, L"A\\B\\C"));
    ASSERT_EQ(key->Set(L"v", {}), ErrorCode::Success);
    ASSERT_EQ(root->DeleteTree(L"a"), ErrorCode::Success);
    const auto again = Create(*root, L"A\\B\\C");
    EXPECT_EQ(key->Open(L"C", KeyAccess::Read).Error(), ErrorCode::KeyDeleted);
    EXPECT_EQ(key->Open(L"", KeyAccess::Read).Error(), ErrorCode::KeyDeleted);
    EXPECT_EQ(key->Create(L"C").Error(), ErrorCode::KeyDeleted);
    EXPECT_EQ(key->Duplicate().Error(), ErrorCode::KeyDeleted);
    EXPECT_EQ(key->Subkeys().Error(), ErrorCode::KeyDeleted);
    EXPECT_EQ(key->Values().Error(), ErrorCode::KeyDeleted);
    EXPECT_EQ(key->Query(L"v").Error(), ErrorCode::KeyDeleted);
    EXPECT_EQ(key->Set(L"v", {}), ErrorCode::KeyDeleted);
    EXPECT_EQ(key->DeleteValue(L"v"), ErrorCode::KeyDeleted);
    EXPECT_EQ(key->DeleteTree(L"C"), ErrorCode::KeyDeleted);
    EXPECT_EQ(key->Watch(WatchScope::Key, WatchFilter::Names, NewEvent()), ErrorCode::KeyDeleted);
    EXPECT_TRUE(root->Open(L"A\\B", KeyAccess::Read).Value()->Values().Value().empty());
}

TEST_F(SqliteRegistryTest, AKeyOpenedForReadingRefusesToWrite) {
    const auto root = OpenRegistry()->LocalMachine();
    Ignore(Create(*root, L"A\\B"));
    const auto key = root->Open(L"A", KeyAccess::Read);
    const auto copy = key.Value()->Duplicate();
    for (IKey* reader : {key.Value().get(), copy.Value().get()}) {
        EXPECT_EQ(reader->Set(L"v", {}), ErrorCode::AccessDenied);
        EXPECT_EQ(reader->DeleteValue(L"v"), ErrorCode::AccessDenied);
        EXPECT_EQ(reader->DeleteTree(L"B"), ErrorCode::AccessDenied);
        EXPECT_EQ(reader->Create(L"C").Error(), ErrorCode::AccessDenied);
    }
    EXPECT_EQ(root->Open(L"A\\missing", KeyAccess::Read).Error(), ErrorCode::FileNotFound);
    EXPECT_EQ(key.Value()->Query(L"missing").Error(), ErrorCode::FileNotFound);
    EXPECT_EQ(root->DeleteTree(L"\\"), ErrorCode::InvalidParameter);
}

TEST_F(SqliteRegistryTest, OnlyACommittedTransactionHasAnEffect) {
    const auto registry = OpenRegistry();
    const auto root = registry->LocalMachine();
    {
        const auto transaction = registry->Begin();
        Ignore(Create(*root, L"A\\B"));
        EXPECT_EQ(registry->Begin().Error(), ErrorCode::InvalidFunction);
        EXPECT_TRUE(root->Open(L"A\\B", KeyAccess::Read).IsOk());
    }
    EXPECT_EQ(root->Open(L"A", KeyAccess::Read).Error(), ErrorCode::FileNotFound);
    const auto transaction = registry->Begin();
    Ignore(Create(*root, L"A\\B"));
    EXPECT_EQ(transaction.Value()->Commit(), ErrorCode::Success);
    EXPECT_EQ(OpenRegistry()->LocalMachine()->Open(L"A\\B", KeyAccess::Read).Error(), ErrorCode::Success);
    EXPECT_EQ(transaction.Value()->Commit(), ErrorCode::InvalidFunction);
}

TEST_F(SqliteRegistryTest, AReadingTransactionSeesOneMomentAndKeepsNoWriterOut) {
    const auto registry = OpenRegistry();
    const auto root = registry->LocalMachine();
    ASSERT_EQ(root->Set(L"v", CValue::FromNumber32(1)), ErrorCode::Success);
    {
        const auto transaction = registry->BeginRead();
        ASSERT_TRUE(transaction.IsOk());
        EXPECT_EQ(root->Query(L"v").Value(), CValue::FromNumber32(1));
        std::thread([&] {
            EXPECT_EQ(OpenRegistry()->LocalMachine()->Set(L"v", CValue::FromNumber32(2)), ErrorCode::Success);
        }).join();
        EXPECT_EQ(root->Query(L"v").Value(), CValue::FromNumber32(1));
        EXPECT_EQ(root->Set(L"v", CValue::FromNumber32(3)), ErrorCode::AccessDenied);
        EXPECT_EQ(root->DeleteValue(L"v"), ErrorCode::AccessDenied);
    }
    EXPECT_EQ(root->Query(L"v").Value(), CValue::FromNumber32(2));
    EXPECT_EQ(root->Set(L"v", CValue::FromNumber32(3)), ErrorCode::Success);
}

TEST_F(SqliteRegistryTest, AWriteThatThrowsLeavesNothingAndNobodyLockedOut) {
    const auto store = CRegistryStore::Open(folder.Path(), options).Value();
    EXPECT_THROW(Ignore(store->Writing([](CKeyTable& keys, CChangeJournal&) -> ErrorCode {
                     EXPECT_TRUE(keys.Insert(kLocalMachineId, L"A").IsOk());
                     throw std::bad_alloc();
                 })),
                 std::bad_alloc);
    const auto root = OpenRegistry()->LocalMachine();
    EXPECT_EQ(root->Set(L"v", {}), ErrorCode::Success) << "the file is still locked";
    EXPECT_TRUE(root->Subkeys().Value().empty());
    std::thread([&] {
        EXPECT_EQ(store->BeginTransaction(KeyAccess::ReadWrite), ErrorCode::Success);
        store->AbandonTransaction();
    }).join();
}

TEST_F(SqliteRegistryTest, ATransactionKeepsOtherThreadsOut) {
    const auto registry = OpenRegistry();
    auto transaction = registry->Begin();
    const auto root = registry->LocalMachine();
    std::atomic<bool> committed = false;
    std::thread other([&] {
        EXPECT_EQ(registry->LocalMachine()->Query(L"v").Value(), CValue::FromNumber32(2));
        EXPECT_TRUE(committed);
    });
    EXPECT_EQ(root->Set(L"v", CValue::FromNumber32(1)), ErrorCode::Success);
    EXPECT_EQ(root->Set(L"v", CValue::FromNumber32(2)), ErrorCode::Success);
    committed = true;
    EXPECT_EQ(transaction.Value()->Commit(), ErrorCode::Success);
    other.join();
}

TEST_F(SqliteRegistryTest, FilesAreTheOwnersAloneWhateverTheMask) {
    for (const mode_t mask : {0u, 0777u}) {
        const CTemporaryFolder own;
        const mode_t before = ::umask(mask);
        {
            const auto registry = OpenSqliteRegistry(own.Path());
            ::umask(before);
            ASSERT_TRUE(registry.IsOk());
            ASSERT_EQ(registry.Value()->LocalMachine()->Set(L"v", {}), ErrorCode::Success);
            int files = 0;
            for (const auto& entry : std::filesystem::directory_iterator(own.Path())) {
                struct stat state {};
                ASSERT_EQ(::stat(entry.path().c_str(), &state), 0);
                EXPECT_EQ(state.st_mode & 07777, 0600u) << entry.path();
                ++files;
            }
            EXPECT_EQ(files, 4);
        }
    }
}

TEST_F(SqliteRegistryTest, AFileThatIsNoRegistryIsReportedAsCorrupt) {
    const std::string cases[] = {"", "not a database", std::string(8192, 'x')};
    for (const std::string& content : cases) {
        WriteFile(folder / "registry.db", content);
        EXPECT_EQ(OpenSqliteRegistry(folder.Path()).Error(), ErrorCode::RegistryCorrupt);
        EXPECT_EQ(ReadFile(folder / "registry.db"), content);
    }
}

TEST_F(SqliteRegistryTest, DamageInsideTheFileIsReportedAsCorrupt) {
    {
        const auto root = OpenRegistry()->LocalMachine();
        for (int i = 0; i < 2000; ++i) ASSERT_EQ(root->Set(std::to_wstring(i), {}), ErrorCode::Success);
    }
    std::string bytes = ReadFile(folder / "registry.db");
    ASSERT_GT(bytes.size(), 100'000u);
    std::fill(bytes.begin() + 4096, bytes.end(), '\x5A');
    WriteFile(folder / "registry.db", bytes);
    const auto registry = OpenSqliteRegistry(folder.Path(), options);
    ASSERT_TRUE(registry.IsOk());
    EXPECT_EQ(registry.Value()->LocalMachine()->Values().Error(), ErrorCode::RegistryCorrupt);
    EXPECT_EQ(registry.Value()->LocalMachine()->Set(L"v", {}), ErrorCode::RegistryCorrupt);
}

TEST_F(SqliteRegistryTest, AFileLockedByAnotherWriterIsBusyUntilReleased) {
    const auto registry = OpenRegistry();
    sqlite3* raw = nullptr;
    ASSERT_EQ(sqlite3_open((folder / "registry.db").c_str(), &raw), SQLITE_OK);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> other(raw, sqlite3_close);
    ASSERT_EQ(sqlite3_exec(raw, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_EQ(registry->LocalMachine()->Set(L"v", {}), ErrorCode::Busy);
    EXPECT_EQ(registry->Begin().Error(), ErrorCode::Busy);
    EXPECT_TRUE(registry->LocalMachine()->Values().IsOk());
    ASSERT_EQ(sqlite3_exec(raw, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_EQ(registry->LocalMachine()->Set(L"v", {}), ErrorCode::Success);
}

TEST_F(SqliteRegistryTest, AFullDiskLosesNothingThatWasCommitted) {
    options.maximumBytes = 256 * 1024;
    const auto registry = OpenRegistry();
    const auto root = registry->LocalMachine();
    const CValue large{ValueType::Binary, std::string(300 * 1024, 'x')};
    ASSERT_EQ(root->Set(L"kept", CValue::FromNumber32(1)), ErrorCode::Success);
    EXPECT_EQ(root->Set(L"kept", large), ErrorCode::DiskFull);
    {
        const auto transaction = registry->Begin();
        EXPECT_EQ(root->Set(L"before", {}), ErrorCode::Success);
        EXPECT_EQ(root->Set(L"large", large), ErrorCode::DiskFull);
        EXPECT_NE(transaction.Value()->Commit(), ErrorCode::Success);
    }
    EXPECT_EQ(root->Values().Value(), (std::vector<CNamedValue>{{L"kept", CValue::FromNumber32(1)}}));
    EXPECT_EQ(root->Set(L"after", {}), ErrorCode::Success);
}

}  // namespace
}  // namespace quorbel
