#include <future>
#include <regex>

#include "LibService/MessageIds.h"
#include "auth/CookiePattern.h"
#include "tests/auth/AuthenticationFixture.h"

namespace quorbel {
namespace {

using Remember = CHTTPServer::CAuthenticator::Remember;

class CAuthenticationTest : public CAuthenticationFixture {
 protected:
    static Outcome SignIn(CAuthenticator& authenticator, const wchar_t* user, const wchar_t* password,
                          Remember remember = Remember::No) {
        return authenticator.SignIn(UserIdentity(user), password, remember);
    }
    static Outcome Change(CAuthenticator& authenticator, const wchar_t* caller, const wchar_t* password,
                          const wchar_t* newPassword, std::optional<UserIdentity> target = std::nullopt) {
        return authenticator.ChangePassword({UserIdentity(caller), std::move(target), password, newPassword});
    }
    std::uint32_t LoadError(const wchar_t* value, const CValue& content) {
        SetUserValue(L"ann", value, content);
        const CStatus status = std::make_shared<CAuthenticator>(Platform(), L"h", 1)
                                   ->Initialize(*m_service, L"/auth", CRegistryKey(HostKey(kHost)), kCookie);
        EXPECT_EQ(UserKey(L"ann")->DeleteValue(value), ErrorCode::Success);
        return status.IsOk() ? 0 : status.Error()->GetCode();
    }
};

TEST(CookiePattern, FindsTheLastCookieWhoseNameEndsWithTheName) {
    struct CCase {
        const wchar_t* name;
        std::string field;
        std::string value;
    };
    const std::string many = [] {
        std::string field;
        for (int i = 0; i != 3000; ++i) field += "c" + std::to_string(i) + "=1; ";
        return field;
    }();
    const std::vector<CCase> cases{
        {L"QbAuth", "QbAuth=1", "1"},
        {L"QbAuth", "a=b; QbAuth=1; c=d", "1"},
        {L"QbAuth", "a=b;qbAUTH=1", "1"},
        {L"QbAuth", "XQbAuth=2", "2"},
        {L"QbAuth", "QbAuth=1; QbAuth=2", "2"},
        {L"QbAuth", "QbAuth=1=2;x", "1=2"},
        {L"QbAuth", "a=QbAuth=5; b=QbAut=6", "5"},
        {L"QbAuth", "=; =QbAuth=", ""},
        {L"QbAuth", "QbAuth=", ""},
        {L"QbAuth", "QbAuth", ""},
        {L"QbAuth", "QbAuth=\xFF\xFE; x=\xC3", "\xFF\xFE"},
        {L"QbAuth", "\xFF\x80=1; QbAuth=1", "1"},
        {L"QbAuth", "", ""},
        {L"QbAuth", many + "QbAuth=7", "7"},
        {L"QbAuth", many, ""},
        {L"Qb.uth", "QbXuth=3", "3"},
        {L"(b)", "b=4", "b"},  // the name's own group comes first
        {L"", "=5", ""},
    };
    for (const auto& [name, field, value] : cases) {
        CCookiePattern pattern;
        ASSERT_TRUE(CCookiePattern::Create(name, pattern).IsOk()) << ToUtf8(name);
        EXPECT_EQ(pattern.Find(field), value) << ToUtf8(name) << " in " << field.substr(0, 80);
        if (*name == L'\0') continue;
        // The same name as an expression.
        ASSERT_TRUE(CCookiePattern::Create(L"(?:" + std::wstring(name) + L")", pattern).IsOk());
        EXPECT_EQ(pattern.Find(field), value) << ToUtf8(name) << " in " << field.substr(0, 80);
    }
    for (const wchar_t* name : {L"(", L"a**", L"[", L"\\1", L"a{2000}{2000}"}) {
        CCookiePattern pattern;
        const CStatus status = CCookiePattern::Create(name, pattern);
        ASSERT_FALSE(status.IsOk()) << ToUtf8(name);
        EXPECT_EQ(status.Error()->GetMessageId(), message::kStandardException);
    }
}

TEST(AuthenticateHandler, TheSessionTimeoutIsTheNumberThatItsTextBeginsWith) {
    const std::vector<std::pair<const wchar_t*, std::uint32_t>> cases{
        {L"", 600},
        {L"1800", 1800},
        {L"15 min", 15},
        {L"abc", 0},
        {L"-5", 0},
        {L"0", 0},
        {L"4294967296", 4294967295},
        {L"99999999999999999999999", 4294967295}};
    for (const auto& [text, seconds] : cases) {
        EXPECT_EQ(AuthenticateHandler::SessionTimeout(text), seconds) << ToUtf8(text);
    }
}

TEST_F(CAuthenticationTest, SessionsEndWhenUnusedForTheirTimeout) {
    AddUser(L"ann", L"secret");
    const auto authenticator = NewAuthenticator();
    const std::string token = SignIn(*authenticator, L"ANN", L"secret").token;
    EXPECT_TRUE(std::regex_match(token, std::regex("[0-9A-F]{16}"))) << token;
    EXPECT_EQ(CallerWith(*authenticator, token), L"ann/2");
    m_clock.Turn(kTimeout);
    EXPECT_EQ(CallerWith(*authenticator, token), L"ann/2") << "just within the timeout";
    m_clock.Turn(kTimeout);
    EXPECT_EQ(CallerWith(*authenticator, token), L"ann/2") << "each use begins the time anew";
    m_clock.Turn(kTimeout + std::chrono::nanoseconds(1));
    EXPECT_EQ(CallerWith(*authenticator, token), L"/1");
    EXPECT_EQ(CallerWith(*authenticator, "0123456789ABCDEF"), L"/1");
    EXPECT_EQ(CallerWith(*authenticator, ""), L"/1");
}

TEST_F(CAuthenticationTest, ExpiredSessionsAreSweptOutFromTheOldestOn) {
    AddUser(L"ann", L"secret");
    const auto authenticator = NewAuthenticator();
    const std::string first = SignIn(*authenticator, L"ann", L"secret").token;
    const std::string second = SignIn(*authenticator, L"ann", L"secret").token;
    m_clock.Turn(kTimeout);
    EXPECT_EQ(CallerWith(*authenticator, first), L"ann/2");
    m_clock.Turn(std::chrono::seconds(1));
    EXPECT_EQ(authenticator->SessionCount(), 2u) << "expired ones stay until a session begins";
    const std::string third = SignIn(*authenticator, L"ann", L"secret").token;
    EXPECT_EQ(authenticator->SessionCount(), 2u);
    EXPECT_EQ(CallerWith(*authenticator, first) + CallerWith(*authenticator, second) +
                  CallerWith(*authenticator, third),
              L"ann/2/1ann/2");
}

TEST_F(CAuthenticationTest, WithATimeoutOfZeroOnlyLongLivedTokensLast) {
    AddUser(L"ann", L"secret");
    const auto authenticator = NewAuthenticator(0);
    const std::string session = SignIn(*authenticator, L"ann", L"secret").token;
    const std::string token = SignIn(*authenticator, L"ann", L"secret", Remember::Yes).token;
    m_clock.Turn(std::chrono::nanoseconds(1));
    EXPECT_EQ(CallerWith(*authenticator, session), L"/1");
    EXPECT_EQ(CallerWith(*authenticator, token), L"ann/2");
}

TEST_F(CAuthenticationTest, ALongLivedTokenSurvivesRestartsUntilThePasswordIsChanged) {
    AddUser(L"ann", L"secret");
    std::string token;
    {
        const auto authenticator = NewAuthenticator();
        token = SignIn(*authenticator, L"ann", L"secret", Remember::Yes).token;
        EXPECT_EQ(SignIn(*authenticator, L"ann", L"secret", Remember::Yes).token, token) << "one a user";
    }
    EXPECT_EQ(UserKey(L"ann")->Query(L"Cookie").Value().AsText().find(FromUtf8(token)), std::wstring::npos);
    std::string renewed;
    {
        const auto authenticator = NewAuthenticator();
        m_clock.Turn(std::chrono::hours(10'000));
        EXPECT_EQ(CallerWith(*authenticator, token), L"ann/2");
        const std::string session = SignIn(*authenticator, L"ann", L"secret").token;
        renewed = Change(*authenticator, L"ann", L"secret", L"better").token;
        EXPECT_EQ(CallerWith(*authenticator, token) + CallerWith(*authenticator, session), L"/1/1");
        EXPECT_EQ(CallerWith(*authenticator, renewed), L"ann/2");
    }
    const auto authenticator = NewAuthenticator();
    EXPECT_EQ(CallerWith(*authenticator, token) + CallerWith(*authenticator, renewed), L"/1ann/2");
    EXPECT_EQ(SignIn(*authenticator, L"ann", L"secret").status, 401);
    EXPECT_EQ(SignIn(*authenticator, L"ann", L"better").status, 200);
}

TEST_F(CAuthenticationTest, ATokenThatCannotBeKeptIsIssuedAllTheSame) {
    AddUser(L"ann", L"secret");
    const auto authenticator = NewAuthenticator();
    m_keys->Fail(NTE_FAIL);
    Outcome outcome = SignIn(*authenticator, L"ann", L"secret", Remember::Yes);
    EXPECT_EQ(outcome.failure.Error()->GetHRESULT(), NTE_FAIL);
    EXPECT_EQ(CallerWith(*authenticator, outcome.token), L"ann/2");
    m_keys->Fail(kKeyStorageSuccess);
    ASSERT_TRUE(authenticator->LoadUsers().IsOk());
    EXPECT_EQ(CallerWith(*authenticator, outcome.token), L"/1") << "the registry does not know it";

    m_registry->Faults().Fail(RegistryOperation::Set, ErrorCode::DiskFull, 0);
    outcome = SignIn(*authenticator, L"ann", L"secret", Remember::Yes);
    EXPECT_EQ(outcome.failure.Error()->GetCode(), ToNumber(ErrorCode::DiskFull));
    EXPECT_EQ(CallerWith(*authenticator, outcome.token), L"ann/2");
}

TEST_F(CAuthenticationTest, AnOldTokenDoesNotReturnWhenTheNewOneCannotBeKept) {
    AddUser(L"ann", L"secret");
    const auto authenticator = NewAuthenticator();
    const std::string old = SignIn(*authenticator, L"ann", L"secret", Remember::Yes).token;
    m_keys->Fail(NTE_FAIL);
    const Outcome changed = Change(*authenticator, L"ann", L"secret", L"better");
    m_keys->Fail(kKeyStorageSuccess);
    EXPECT_EQ(changed.status, 200);
    EXPECT_EQ(changed.failure.Error()->GetHRESULT(), NTE_FAIL);
    ASSERT_TRUE(authenticator->LoadUsers().IsOk());
    EXPECT_EQ(CallerWith(*authenticator, old), L"/1");
    EXPECT_EQ(SignIn(*authenticator, L"ann", L"better").status, 200);
}

TEST_F(CAuthenticationTest, WhatIsChangedInPlaceNeverGoesToAnotherUserOfTheName) {
    AddUser(L"ann", L"secret");
    SetUserValue(L"broken", L"Administrator", CValue::FromText(L"no number"));
    CAuthenticator authenticator(Platform(), L"example.org", 100);
    EXPECT_FALSE(Initialize(authenticator).IsOk());
    ASSERT_EQ(UsersKey()->DeleteTree(L"broken"), ErrorCode::Success);
    ASSERT_TRUE(authenticator.LoadUsers().IsOk());  // and nobody watches
    SetUserValue(L"ann", L"Identity", {ValueType::Binary, "of another one"});
    const CValue password = UserKey(L"ann")->Query(L"Password").Value();
    EXPECT_EQ(Change(authenticator, L"ann", L"secret", L"better").status, 500);
    EXPECT_FALSE(SignIn(authenticator, L"ann", L"secret", Remember::Yes).failure.IsOk());
    EXPECT_EQ(UserKey(L"ann")->Query(L"Password").Value(), password);
    EXPECT_FALSE(UserKey(L"ann")->Query(L"Cookie").IsOk());
}

TEST_F(CAuthenticationTest, APasswordThatCannotBeWrittenChangesNothing) {
    AddUser(L"ann", L"secret");
    const auto authenticator = NewAuthenticator();
    const std::string session = SignIn(*authenticator, L"ann", L"secret").token;
    m_registry->Faults().Fail(RegistryOperation::Set, ErrorCode::DiskFull, 0);
    const Outcome outcome = Change(*authenticator, L"ann", L"secret", L"better");
    EXPECT_EQ(outcome.status, 500);
    EXPECT_FALSE(outcome.failure.IsOk());
    m_hasher->Fail(ErrorCode::NotEnoughMemory);
    EXPECT_EQ(Change(*authenticator, L"ann", L"", L"better").status, 401) << "without a hash nothing matches";
    m_hasher->Fail(ErrorCode::Success);
    EXPECT_EQ(CallerWith(*authenticator, session), L"ann/2");
    EXPECT_EQ(SignIn(*authenticator, L"ann", L"better").status, 401);
    EXPECT_EQ(SignIn(*authenticator, L"ann", L"secret").status, 200);
}

TEST_F(CAuthenticationTest, WhoIsUnknownOrHasNoPasswordCostsAHashAsWell) {
    AddUser(L"ann", L"secret");
    EXPECT_NE(UserKey(L"bob"), nullptr);
    const auto authenticator = NewAuthenticator();
    for (const wchar_t* user : {L"ann", L"bob", L"nobody", L""}) {
        const int before = m_hasher->Hashes();
        const Outcome outcome = SignIn(*authenticator, user, L"wrong");
        EXPECT_EQ(outcome.status, 401);
        EXPECT_TRUE(outcome.token.empty() && outcome.document.empty() && outcome.failure.IsOk());
        EXPECT_EQ(m_hasher->Hashes(), before + 1) << ToUtf8(user);
    }
}

TEST_F(CAuthenticationTest, PasswordsAreChangedByTheirOwnersAndByAdministrators) {
    AddUser(L"ann", L"a");
    AddUser(L"bob", L"b");
    AddUser(L"root", L"r", true);
    const auto authenticator = NewAuthenticator();
    const auto change = [&](const wchar_t* caller, const wchar_t* password, const wchar_t* newPassword,
                            std::optional<UserIdentity> target = std::nullopt) {
        return Change(*authenticator, caller, password, newPassword, std::move(target));
    };
    EXPECT_EQ(change(L"", L"a", L"n").status, 401);
    EXPECT_EQ(change(L"gone", L"a", L"n").status, 401);
    EXPECT_EQ(change(L"ann", L"wrong", L"n").status, 401);
    EXPECT_EQ(change(L"ann", L"a", L"n", UserIdentity(L"bob")).status, 403);
    EXPECT_EQ(change(L"ann", L"a", L"n", UserIdentity(L"gone")).status, 403);
    EXPECT_EQ(change(L"root", L"", L"n", UserIdentity(L"gone")).status, 404);
    const auto noPassword = [&](std::optional<UserIdentity> target) {
        return authenticator->ChangePassword({UserIdentity(L"ann"), std::move(target), L"a", std::nullopt});
    };
    EXPECT_EQ(noPassword(std::nullopt).status, 400);
    EXPECT_EQ(noPassword(UserIdentity(L"bob")).status, 403);

    const std::string bobs = SignIn(*authenticator, L"bob", L"b").token;
    const Outcome byAdministrator = change(L"root", L"", L"n", UserIdentity(L"BOB"));
    EXPECT_EQ(byAdministrator.status, 200);
    EXPECT_EQ(byAdministrator.token, "") << "of somebody else";
    EXPECT_EQ(CallerWith(*authenticator, bobs), L"/1");
    EXPECT_EQ(SignIn(*authenticator, L"bob", L"n").status, 200);
    const Outcome ofOwn = change(L"root", L"", L"s", UserIdentity(L"Root"));
    EXPECT_EQ(CallerWith(*authenticator, ofOwn.token), L"root/3");

    const Outcome emptied = change(L"ann", L"a", L"");
    EXPECT_EQ(CallerWith(*authenticator, emptied.token), L"ann/2");
    EXPECT_EQ(change(L"ann", L"", L"again").status, 200);
}

TEST_F(CAuthenticationTest, UsersAreLoadedAsTheRegistryHasThem) {
    AddUser(L"ann", L"secret");
    const std::string identity = "sixteen bytes...";
    EXPECT_EQ(LoadError(L"Identity", CValue::FromText(L"x")), 13u);
    EXPECT_EQ(LoadError(L"Administrator", CValue::FromText(L"1")), 13u);
    EXPECT_EQ(LoadError(L"Password", {ValueType::ExpandableText, "x"}), 13u);
    AddUser(L"ann", L"secret");
    EXPECT_EQ(LoadError(L"Cookie", CValue::FromText(L"no Base64!")), 0u) << "is no token";
    EXPECT_EQ(LoadError(L"Cookie", CValue::FromText(L"AAAA")),
              static_cast<std::uint32_t>(NTE_BAD_DATA) & 0xFFFF);
    SetUserValue(L"ann", L"Identity", {ValueType::Binary, identity});
    const auto authenticator = NewAuthenticator();
    EXPECT_EQ(UserKey(L"ann")->Query(L"Identity").Value().data, identity) << "a present one stays";
}

TEST_F(CAuthenticationTest, MissingIdentitiesAreWrittenOnce) {
    SetUserValue(L"ann", L"Password", CValue::FromText(L"secret"));
    std::string identity;
    {
        const auto authenticator = NewAuthenticator();
        identity = UserKey(L"ann")->Query(L"Identity").Value().data;
    }
    EXPECT_EQ(identity.size(), 16u);
    const auto authenticator = NewAuthenticator();
    EXPECT_EQ(UserKey(L"ann")->Query(L"Identity").Value().data, identity);
}

TEST_F(CAuthenticationTest, WithoutAUsersKeyThereAreNoUsers) {
    ASSERT_EQ(HostKey(kHost)->DeleteTree(L"Users"), ErrorCode::Success);
    const auto authenticator = NewAuthenticator();
    EXPECT_EQ(SignIn(*authenticator, L"ann", L"secret").status, 401);
    EXPECT_TRUE(m_work->NoWorkRunning().Test());
}

TEST_F(CAuthenticationTest, ACookieNameWithoutAMeaningFailsAndAnEmptyOneFindsNothing) {
    AddUser(L"ann", L"secret");
    CAuthenticator failing(Platform(), L"example.org", 1);
    EXPECT_EQ(Initialize(failing, L"(").Error()->GetMessageId(), message::kStandardException);
    const auto unnamed = std::make_shared<CAuthenticator>(Platform(), L"example.org", 1);
    ASSERT_TRUE(Initialize(*unnamed, L"").IsOk());
    const std::string token = SignIn(*unnamed, L"ann", L"secret").token;
    EXPECT_EQ(unnamed->Identify(RequestWith("=" + token)).level, AccessLevel::Anon);
}

TEST_F(CAuthenticationTest, ChangesOfUsersAreFollowed) {
    AddUser(L"ann", L"secret");
    AddUser(L"bob", L"secret");
    const auto authenticator = NewAuthenticator();
    const std::string ann = SignIn(*authenticator, L"ann", L"secret").token;
    const std::string anns = SignIn(*authenticator, L"ann", L"secret", Remember::Yes).token;
    const std::string bob = SignIn(*authenticator, L"bob", L"secret").token;

    SetUserValue(L"ann", L"Administrator", CValue::FromNumber32(1));
    WaitUntil([&] { return CallerWith(*authenticator, anns) == L"ann/3"; }, "the administrator");
    EXPECT_EQ(CallerWith(*authenticator, ann), L"ann/2") << "a session is what it was when it began";
    ASSERT_EQ(UsersKey()->DeleteTree(L"bob"), ErrorCode::Success);
    WaitUntil([&] { return CallerWith(*authenticator, bob) == L"/1"; }, "the end of the session");
    EXPECT_EQ(SignIn(*authenticator, L"bob", L"secret").status, 401);
    // As when a user is removed and another one of the same name added at once.
    SetUserValue(L"ann", L"Identity", {ValueType::Binary, "another"});
    WaitUntil([&] { return CallerWith(*authenticator, ann) == L"/1"; }, "the end of the session");
}

TEST_F(CAuthenticationTest, ABrokenEntryLeavesTheUsersInForceAndIsReported) {
    AddUser(L"ann", L"secret");
    const auto authenticator = NewAuthenticator();
    const std::string token = SignIn(*authenticator, L"ann", L"secret").token;
    SetUserValue(L"bob", L"Administrator", CValue::FromText(L"yes"));
    WaitUntil([&] { return m_work->NoWorkRunning().Test(); }, "the end of the watcher");
    EXPECT_EQ(CallerWith(*authenticator, token), L"ann/2");
    EXPECT_EQ(SignIn(*authenticator, L"ann", L"secret").status, 200);
    EXPECT_EQ(WithId(m_events.Take(), message::kSystemError).size(), 1u);
}

/// A hasher that stops at a hash until it is let go on.
class CGatedHasher final : public IPasswordHasher {
 public:
    explicit CGatedHasher(std::shared_ptr<IPasswordHasher> target) : m_target(std::move(target)) {}
    CResult<PasswordHash> Hash(std::string_view password, const PasswordSalt& salt) override {
        if (m_stops.exchange(false)) {
            m_arrived.set_value();
            m_goOn.get_future().wait();
        }
        return m_target->Hash(password, salt);
    }
    /// Stops the next hash.
    void StopNext() {
        m_arrived = {};
        m_goOn = {};
        m_stops = true;
    }
    void WaitUntilStopped() { m_arrived.get_future().wait(); }
    void GoOn() { m_goOn.set_value(); }

 private:
    const std::shared_ptr<IPasswordHasher> m_target;
    std::atomic<bool> m_stops{false};
    std::promise<void> m_arrived;
    std::promise<void> m_goOn;
};

class CAuthenticationRaceTest : public CAuthenticationTest {
 protected:
    /// An authenticator whose hashes a test can stop.
    std::shared_ptr<CAuthenticator> NewGated() {
        auto authenticator = std::make_shared<CAuthenticator>(
            CAuthenticator::Platform{*m_registry, m_gated, *m_keys, *m_work, m_clock}, L"example.org", 100);
        EXPECT_TRUE(Initialize(*authenticator).IsOk());
        return authenticator;
    }
    CGatedHasher m_gated{m_hasher};
};

TEST_F(CAuthenticationRaceTest, APasswordChangedDuringALoadStaysChanged) {
    AddUser(L"ann", L"secret");
    SetUserValue(L"plain", L"Password", CValue::FromText(L"is hashed by each load"));
    const auto authenticator = NewGated();
    m_gated.StopNext();
    auto load = std::async(std::launch::async, [&] { return authenticator->LoadUsers().IsOk(); });
    m_gated.WaitUntilStopped();
    const std::string token = Change(*authenticator, L"ann", L"secret", L"better").token;
    m_gated.GoOn();
    EXPECT_TRUE(load.get());
    EXPECT_EQ(SignIn(*authenticator, L"ann", L"secret").status, 401);
    EXPECT_EQ(SignIn(*authenticator, L"ann", L"better").status, 200);
    EXPECT_EQ(CallerWith(*authenticator, token), L"ann/2");
}

TEST_F(CAuthenticationRaceTest, APasswordThatIsReplacedWhileItIsVerifiedNoLongerCounts) {
    AddUser(L"ann", L"secret");
    AddUser(L"root", L"r", true);
    const auto authenticator = NewGated();
    for (const Remember remember : {Remember::No, Remember::Yes}) {
        const wchar_t* before = remember == Remember::No ? L"secret" : L"better";
        m_gated.StopNext();
        auto signIn = std::async(std::launch::async,
                                 [&] { return SignIn(*authenticator, L"ann", before, remember).status; });
        m_gated.WaitUntilStopped();
        EXPECT_EQ(Change(*authenticator, L"root", L"", L"better", UserIdentity(L"ann")).status, 200);
        EXPECT_EQ(SignIn(*authenticator, L"ann", L"better").status, 200) << "nothing else waits for a hash";
        m_gated.GoOn();
        EXPECT_EQ(signIn.get(), remember == Remember::No ? 401 : 200) << "the same password in another salt";
    }
    m_gated.StopNext();
    auto change = std::async(std::launch::async,
                             [&] { return Change(*authenticator, L"ann", L"better", L"mine").status; });
    m_gated.WaitUntilStopped();
    EXPECT_EQ(Change(*authenticator, L"root", L"", L"other", UserIdentity(L"ann")).status, 200);
    m_gated.GoOn();
    EXPECT_EQ(change.get(), 401);
    EXPECT_EQ(SignIn(*authenticator, L"ann", L"other").status, 200);
}

TEST_F(CAuthenticationTest, ManyThreadsSignInWhileUsersChange) {
    AddUser(L"ann", L"secret");
    AddUser(L"root", L"r", true);
    const auto authenticator = NewAuthenticator();
    std::atomic<bool> ends{false};
    std::vector<std::thread> threads;
    for (int i = 0; i != 4; ++i) {
        threads.emplace_back([&, i] {
            const std::wstring other = L"user" + std::to_wstring(i);
            for (int turn = 0; turn != 50; ++turn) {
                const Outcome session = SignIn(*authenticator, L"ann", L"secret");
                EXPECT_EQ(CallerWith(*authenticator, session.token), L"ann/2");
                const auto kept = SignIn(*authenticator, L"ann", L"secret", Remember::Yes);
                EXPECT_EQ(CallerWith(*authenticator, kept.token), L"ann/2");
                EXPECT_EQ(Change(*authenticator, L"root", L"", L"r", UserIdentity(L"root")).status, 200);
                Ignore(SignIn(*authenticator, other.c_str(), L"x"));
            }
        });
    }
    std::thread changer([&] {
        for (int turn = 0; !ends; ++turn) {
            const std::wstring name = L"user" + std::to_wstring(turn % 4);
            AddUser(name, L"x");
            EXPECT_EQ(UsersKey()->DeleteTree(name), ErrorCode::Success);
        }
    });
    for (std::thread& thread : threads) thread.join();
    ends = true;
    changer.join();
    EXPECT_FALSE(m_work->NoWorkRunning().Test()) << "the watcher goes on";
}

}  // namespace
}  // namespace quorbel
