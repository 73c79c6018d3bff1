#include <gtest/gtest.h>

#include "auth/users/Argon2.h"
#include "auth/users/Password.h"
#include "platform/registry/SqliteRegistry.h"
#include "tests/auth/users/QuickHasher.h"
#include "tests/support/FaultyRegistry.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

using namespace std::string_literals;

const std::string kSaltText = "c2FsdHNhbHRzYWx0c2FsdA==";
const std::string kStored = kSaltText + "42C7486192B1C454F290011533333E40";

class PasswordTest : public testing::Test {
 protected:
    ErrorCode Read(CPassword& password, ValueType type, std::string data) {
        EXPECT_EQ(m_user->Set(L"Password", {type, std::move(data)}), ErrorCode::Success);
        return password.Read(*m_user);
    }
    CPassword Hashed(std::wstring_view plain) {
        CPassword password(plain);
        EXPECT_EQ(password.SetPassword(m_hasher), ErrorCode::Success);
        return password;
    }

    CTemporaryFolder m_folder;
    CFaultyRegistry m_registry{OpenSqliteRegistry(m_folder.Path()).Value()};
    const std::unique_ptr<IKey> m_user = m_registry.LocalMachine()->Create(L"User").Value();
    CQuickHasher m_hasher;
};

TEST_F(PasswordTest, TheStoredFormIsThatOfTheKnownAnswer) {
    CArgon2 argon2;
    CPassword password;
    ASSERT_EQ(Read(password, ValueType::Binary, kStored), ErrorCode::Success);
    EXPECT_EQ(password.Form(), PasswordForm::Hashed);
    EXPECT_EQ(password.Verify(L"password", argon2), PasswordMatch::Right);
    EXPECT_EQ(password.Verify(L"Password", argon2), PasswordMatch::Wrong);
    ASSERT_EQ(m_user->DeleteValue(L"Password"), ErrorCode::Success);
    ASSERT_EQ(password.Write(*m_user), ErrorCode::Success);
    EXPECT_EQ(m_user->Query(L"Password").Value(), (CValue{ValueType::Binary, kStored}));
}

TEST_F(PasswordTest, AValueIsTakenStrictly) {
    const auto text = [](std::wstring_view plain) { return CValue::FromText(plain).data; };
    const struct {
        ValueType type;
        std::string data;
        ErrorCode error;
        PasswordForm form;
    } cases[] = {
        {ValueType::Text, text(L"plain"), ErrorCode::Success, PasswordForm::Plain},
        {ValueType::Text, text(L""), ErrorCode::Success, PasswordForm::Plain},
        {ValueType::Text, "", ErrorCode::InvalidData, PasswordForm::None},
        {ValueType::Text, "\0"s, ErrorCode::InvalidData, PasswordForm::None},
        {ValueType::Text, "a\0"s, ErrorCode::InvalidData, PasswordForm::None},
        {ValueType::Text, "a\0\0"s, ErrorCode::InvalidData, PasswordForm::None},
        {ValueType::Text, "a\0b\0\0"s, ErrorCode::InvalidData, PasswordForm::None},
        {ValueType::ExpandableText, text(L"plain"), ErrorCode::InvalidData, PasswordForm::None},
        {ValueType::MultiText, text(L"plain"), ErrorCode::InvalidData, PasswordForm::None},
        {ValueType::None, kStored, ErrorCode::InvalidData, PasswordForm::None},
        {ValueType::Number32, "\1\0\0\0"s, ErrorCode::InvalidData, PasswordForm::None},
        {ValueType::Binary, kStored, ErrorCode::Success, PasswordForm::Hashed},
        {ValueType::Binary, kSaltText, ErrorCode::Success, PasswordForm::Hashed},
        {ValueType::Binary, kSaltText.substr(0, 23), ErrorCode::InvalidData, PasswordForm::None},
        {ValueType::Binary, "", ErrorCode::InvalidData, PasswordForm::None},
        {ValueType::Binary, "!" + kStored.substr(1), ErrorCode::InvalidData, PasswordForm::None},
        {ValueType::Binary, "c2FsdHNhbHRzYWx0c2FsdHM=" + kStored.substr(24), ErrorCode::InvalidData,
         PasswordForm::None},
        {ValueType::Binary, std::string(24, 'A') + kStored.substr(24), ErrorCode::InvalidData,
         PasswordForm::None},
    };
    for (const auto& test : cases) {
        CPassword password = Hashed(L"before");
        EXPECT_EQ(Read(password, test.type, test.data), test.error) << testing::PrintToString(test.data);
        EXPECT_EQ(password.Form(), test.form) << testing::PrintToString(test.data);
        EXPECT_EQ(password.Verify(L"before", m_hasher), PasswordMatch::Wrong);
    }
    ASSERT_EQ(m_user->DeleteValue(L"Password"), ErrorCode::Success);
    CPassword password = Hashed(L"before");
    EXPECT_EQ(password.Read(*m_user), ErrorCode::FileNotFound);
    EXPECT_EQ(password.Form(), PasswordForm::None);
}

TEST_F(PasswordTest, APlainTextIsHashedAsItsUtf8) {
    for (const std::wstring text : {L"", L"plain", L"\u00e4\u20ac\U0001F600", L" with  blanks "}) {
        CPassword password;
        ASSERT_EQ(Read(password, ValueType::Text, CValue::FromText(text).data), ErrorCode::Success);
        EXPECT_EQ(password.Verify(text, m_hasher), PasswordMatch::Wrong) << "not hashed yet";
        ASSERT_EQ(password.SetPassword(m_hasher), ErrorCode::Success);
        EXPECT_EQ(password.Form(), PasswordForm::Hashed);
        EXPECT_EQ(password.Verify(text, m_hasher), PasswordMatch::Right);
        EXPECT_EQ(password.Verify(text + L'x', m_hasher), PasswordMatch::Wrong);
    }
    const std::wstring loneSurrogate(1, static_cast<wchar_t>(0xD800));
    EXPECT_EQ(Hashed(loneSurrogate).Verify(loneSurrogate, m_hasher), PasswordMatch::Right);
    EXPECT_EQ(Hashed(L"").Verify(L"x", m_hasher), PasswordMatch::Wrong);
}

TEST_F(PasswordTest, ASaltIsNewForEachPassword) {
    std::set<std::string> stored;
    for (int i = 0; i < 3; ++i) {
        const CPassword password = Hashed(L"same");
        ASSERT_EQ(password.Write(*m_user), ErrorCode::Success);
        CPassword read;
        ASSERT_EQ(read.Read(*m_user), ErrorCode::Success);
        EXPECT_EQ(read.Verify(L"same", m_hasher), PasswordMatch::Right);
        stored.insert(m_user->Query(L"Password").Value().data);
    }
    EXPECT_EQ(stored.size(), 3u);
    EXPECT_EQ(stored.begin()->size(), 56u);
}

TEST_F(PasswordTest, NoOtherHashTextVerifies) {
    CArgon2 argon2;
    const std::string lower = kSaltText + "42c7486192b1c454f290011533333e40";
    for (const std::string& stored : {lower, kSaltText, kStored.substr(0, 55), kStored + '\0', kStored + '0',
                                      kStored.substr(0, 55) + '1', kSaltText + std::string(32, '\0')}) {
        CPassword password;
        ASSERT_EQ(Read(password, ValueType::Binary, stored), ErrorCode::Success);
        EXPECT_EQ(password.Verify(L"password", argon2), PasswordMatch::Wrong) << stored;
    }
}

TEST_F(PasswordTest, EveryAnswerCostsOneHash) {
    const CPassword hashed = Hashed(L"right");
    const CPassword none;
    const CPassword plain(L"right");
    int hashes = m_hasher.Hashes();
    const std::pair<const CPassword*, std::wstring> cases[] = {
        {&hashed, L"right"}, {&hashed, L"wrong"}, {&none, L"right"}, {&plain, L"right"}, {&none, L""}};
    for (const auto& [password, candidate] : cases) {
        const bool isRight = password == &hashed && candidate == L"right";
        EXPECT_EQ(password->Verify(candidate, m_hasher),
                  isRight ? PasswordMatch::Right : PasswordMatch::Wrong);
        EXPECT_EQ(m_hasher.Hashes(), ++hashes);
    }
}

TEST_F(PasswordTest, AHasherThatFailsChangesNothing) {
    CPassword password = Hashed(L"right");
    CPassword plain(L"plain");
    m_hasher.Fail(ErrorCode::NotEnoughMemory);
    EXPECT_EQ(password.Verify(L"right", m_hasher), PasswordMatch::Wrong);
    EXPECT_EQ(plain.SetPassword(m_hasher), ErrorCode::NotEnoughMemory);
    m_hasher.Fail(ErrorCode::OperationAborted);
    EXPECT_EQ(password.Verify(L"right", m_hasher), PasswordMatch::Abandoned);
    EXPECT_EQ(plain.SetPassword(m_hasher), ErrorCode::OperationAborted);
    m_hasher.Fail(ErrorCode::Success);
    EXPECT_EQ(password.Verify(L"right", m_hasher), PasswordMatch::Right);
    EXPECT_EQ(plain.SetPassword(m_hasher), ErrorCode::Success);
    EXPECT_EQ(plain.Verify(L"plain", m_hasher), PasswordMatch::Right);
}

TEST_F(PasswordTest, OnlyAHashedOneIsWritten) {
    CPassword plain(L"plain");
    EXPECT_EQ(plain.Write(*m_user), ErrorCode::InvalidParameter);
    EXPECT_EQ(CPassword().Write(*m_user), ErrorCode::InvalidParameter);
    EXPECT_EQ(CPassword().SetPassword(m_hasher), ErrorCode::InvalidParameter);
    EXPECT_EQ(m_user->Query(L"Password").Error(), ErrorCode::FileNotFound);
    const CPassword hashed = Hashed(L"right");
    m_registry.Faults().Fail(RegistryOperation::Set, ErrorCode::DiskFull);
    EXPECT_EQ(hashed.Write(*m_user), ErrorCode::DiskFull);
    m_registry.Faults().Fail(RegistryOperation::Query, ErrorCode::RegistryIoFailed);
    EXPECT_EQ(plain.Read(*m_user), ErrorCode::RegistryIoFailed);
}

TEST_F(PasswordTest, ACopyVerifiesAndAMovedOneDoesNot) {
    CPassword first = Hashed(L"right");
    const CPassword copy = first;
    CPassword moved = std::move(first);
    EXPECT_EQ(first.Form(), PasswordForm::None);  // NOLINT(bugprone-use-after-move): the point of it
    EXPECT_EQ(first.Verify(L"right", m_hasher), PasswordMatch::Wrong);
    EXPECT_EQ(copy.Verify(L"right", m_hasher), PasswordMatch::Right);
    EXPECT_EQ(moved.Verify(L"right", m_hasher), PasswordMatch::Right);
    CPassword other = Hashed(L"other");
    moved = std::move(other);
    EXPECT_EQ(moved.Verify(L"other", m_hasher), PasswordMatch::Right);
    EXPECT_EQ(other.Form(), PasswordForm::None);  // NOLINT(bugprone-use-after-move)
}

}  // namespace
}  // namespace quorbel
