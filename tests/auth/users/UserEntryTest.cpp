#include <gtest/gtest.h>

#include "auth/users/UserEntry.h"
#include "platform/Text.h"
#include "platform/registry/SqliteRegistry.h"
#include "tests/support/FaultyRegistry.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

using namespace std::string_literals;

const std::string kStoredPassword = "c2FsdHNhbHRzYWx0c2FsdA==42C7486192B1C454F290011533333E40";
const CValue kBytes{ValueType::Binary, "bytes"};

class UserEntryTest : public testing::Test {
 protected:
    void Set(const std::wstring& key, const std::wstring& name, const CValue& value) {
        ASSERT_EQ(m_root->Create(L"User\\" + key).Value()->Set(name, value), ErrorCode::Success);
    }
    void MakeGoodUser() {
        Ignore(m_root->DeleteTree(L"User"));
        Set(L"", L"Identity", {ValueType::Binary, "0123456789abcdef"});
        Set(L"", L"DisplayName", CValue::FromText(L"\u00c4nne"));
        Set(L"", L"Password", {ValueType::Binary, kStoredPassword});
        Set(L"", L"Cookie", CValue::FromText(L"c2VhbGVk"));
        Set(L"", L"Administrator", CValue::FromNumber32(2));
        Set(L"WebAuthn\\1", L"Id", {ValueType::Binary, "\x80"});
        Set(L"WebAuthn\\1", L"PublicKey", {ValueType::Binary, "key 1"});
        Set(L"WebAuthn\\2", L"Id", {ValueType::Binary, "\x7F\0"s});
        Set(L"WebAuthn\\2", L"PublicKey", {ValueType::Binary, "key 2"});
        Set(L"WebAuthn\\2", L"AAGUID", CValue::FromText(L"not read"));
    }
    CResult<CUserEntry> Read() {
        return ReadUserEntry(*m_root->Open(L"User", KeyAccess::Read).Value(), m_culprit);
    }

    CTemporaryFolder m_folder;
    CFaultyRegistry m_registry{OpenSqliteRegistry(m_folder.Path()).Value()};
    const std::unique_ptr<IKey> m_root = m_registry.LocalMachine();
    std::wstring m_culprit;
};

TEST_F(UserEntryTest, AWholeUserIsRead) {
    MakeGoodUser();
    const auto entry = Read();
    ASSERT_TRUE(entry.IsOk()) << ToUtf8(m_culprit);
    EXPECT_EQ(entry.Value().identity, "0123456789abcdef");
    EXPECT_EQ(entry.Value().displayName, L"\u00c4nne");
    EXPECT_EQ(entry.Value().password.Form(), PasswordForm::Hashed);
    EXPECT_EQ(entry.Value().cookieText, L"c2VhbGVk");
    EXPECT_TRUE(entry.Value().isAdministrator);
    const std::vector<std::pair<const std::string, std::string>> credentials(
        entry.Value().credentials.begin(), entry.Value().credentials.end());
    EXPECT_EQ(credentials, (decltype(credentials){{"\x7F\0"s, "key 2"}, {"\x80", "key 1"}}));
    EXPECT_EQ(m_culprit, L"");
}

TEST_F(UserEntryTest, AnEmptyKeyIsAUserWithoutAnything) {
    ASSERT_TRUE(m_root->Create(L"User").IsOk());
    const auto entry = Read();
    ASSERT_TRUE(entry.IsOk());
    EXPECT_EQ(entry.Value().identity, std::nullopt);
    EXPECT_EQ(entry.Value().displayName, L"");
    EXPECT_EQ(entry.Value().password.Form(), PasswordForm::None);
    EXPECT_EQ(entry.Value().cookieText, L"");
    EXPECT_FALSE(entry.Value().isAdministrator);
    EXPECT_TRUE(entry.Value().credentials.empty());
}

TEST_F(UserEntryTest, AValueOfTheWrongTypeFailsAndIsNamed) {
    const CValue text = CValue::FromText(L"text");
    const struct {
        std::wstring key;
        std::wstring name;
        CValue value;
        bool fails;
    } cases[] = {
        {L"", L"Identity", text, true},
        {L"", L"Identity", CValue::FromNumber32(1), true},
        {L"", L"Identity", {ValueType::Binary, ""}, false},
        {L"", L"DisplayName", CValue::FromText(L"%NAME%", ValueType::ExpandableText), false},
        {L"", L"DisplayName", kBytes, false},
        {L"", L"DisplayName", {ValueType::Text, ""}, true},
        {L"", L"DisplayName", {ValueType::Text, "a\0\0"s}, true},
        {L"", L"DisplayName", {ValueType::ExpandableText, "a\0b\0"s}, true},
        {L"", L"Password", CValue::FromText(L"plain"), false},
        {L"", L"Password", CValue::FromText(L"plain", ValueType::ExpandableText), true},
        {L"", L"Password", {ValueType::Binary, "short"}, true},
        {L"", L"Cookie", kBytes, false},
        {L"", L"Cookie", {ValueType::Text, "x"}, false},
        {L"", L"Administrator", CValue::FromNumber32(0), false},
        {L"", L"Administrator", CValue::FromNumber64(1), true},
        {L"", L"Administrator", text, true},
        {L"", L"Administrator", {ValueType::Number32, "\1"}, true},
        {L"", L"Other", {static_cast<ValueType>(99), "?"}, false},
        {L"WebAuthn\\1", L"Id", text, true},
        {L"WebAuthn\\2", L"PublicKey", text, true},
    };
    for (const auto& test : cases) {
        MakeGoodUser();
        Set(test.key, test.name, test.value);
        const auto entry = Read();
        const std::wstring name = test.key.empty() ? test.name : test.key + L'\\' + test.name;
        EXPECT_EQ(entry.Error(), test.fails ? ErrorCode::InvalidData : ErrorCode::Success) << ToUtf8(name);
        EXPECT_EQ(m_culprit, test.fails ? name : L"");
    }
}

TEST_F(UserEntryTest, ACredentialNeedsBothItsValues) {
    for (const std::wstring name : {L"Id", L"PublicKey"}) {
        MakeGoodUser();
        ASSERT_EQ(m_root->Create(L"User\\WebAuthn\\2").Value()->DeleteValue(name), ErrorCode::Success);
        EXPECT_EQ(Read().Error(), ErrorCode::FileNotFound);
        EXPECT_EQ(m_culprit, L"WebAuthn\\2\\" + name);
    }
}

TEST_F(UserEntryTest, AFailureOfTheRegistryIsNeverTakenForAMissingValue) {
    MakeGoodUser();
    ASSERT_TRUE(Read().IsOk());
    const std::pair<RegistryOperation, int> cases[] = {
        {RegistryOperation::Query, 5 + 4}, {RegistryOperation::Open, 4}, {RegistryOperation::Subkeys, 1}};
    for (const auto& [operation, calls] : cases) {
        // The first opening is the test's own.
        for (int call = operation == RegistryOperation::Open ? 2 : 1; call <= calls; ++call) {
            m_registry.Faults().FailNothing();
            m_registry.Faults().Fail(operation, ErrorCode::RegistryIoFailed, call);
            EXPECT_EQ(Read().Error(), ErrorCode::RegistryIoFailed) << call;
            EXPECT_NE(m_culprit, L"");
        }
    }
}

}  // namespace
}  // namespace quorbel
