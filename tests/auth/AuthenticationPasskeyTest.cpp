#include <future>

#include "LibService/MessageIds.h"
#include "auth/passkeys/Challenge.h"
#include "platform/crypto/Base64.h"
#include "tests/auth/AuthenticationFixture.h"
#include "tests/support/service/SoftAuthenticator.h"

namespace quorbel {
namespace {

class CAuthenticationPasskeyTest : public CAuthenticationFixture {
 protected:
    CAuthenticationPasskeyTest() {
        AddUser(L"ann", L"secret");
        AddUser(L"bob", L"secret");
        m_authenticator = NewAuthenticator();
    }
    static std::string ChallengeOf(const Outcome& options) {
        EXPECT_EQ(options.status, 200);
        return FromBase64Url(nlohmann::json::parse(options.document).at("challenge").get<std::string>())
            .value();
    }
    std::string BeginRegistration(const wchar_t* user = L"ann") {
        return ChallengeOf(m_authenticator->CreationOptions({UserIdentity(user), L"secret", {}, {}}));
    }
    std::string BeginSignIn(const wchar_t* user = L"ann") {
        return ChallengeOf(m_authenticator->RequestOptions(UserIdentity(user)));
    }
    Outcome Register(const std::string& challenge, const CSoftAuthenticator& passkey,
                     const char* displayName = nullptr) {
        nlohmann::json body{{"credentials", passkey.None(challenge).Json()}};
        if (displayName) body["user"]["displayName"] = displayName;
        return m_authenticator->RegisterCredential(body);
    }
    Outcome SignIn(const std::string& challenge, const CSoftAuthenticator& passkey) {
        return m_authenticator->SignInByPasskey({{"credentials", passkey.AssertionJson(challenge)}});
    }
    /// Registered, and known by its credential ID.
    CSoftAuthenticator RegisteredPasskey() {
        CSoftAuthenticator passkey;
        EXPECT_EQ(Register(BeginRegistration(), passkey).status, 200);
        EXPECT_TRUE(m_authenticator->LoadUsers().IsOk());
        return passkey;
    }
    static std::uint32_t ErrorOf(const Outcome& outcome) {
        if (outcome.failure.IsOk()) return 0;
        const std::uint32_t code = outcome.failure.Error()->GetCode();
        return code != 0 ? code : outcome.failure.Error()->GetMessageId();
    }
    std::size_t StoredPasskeys(const std::wstring& user) {
        const auto key = UserKey(user)->Open(L"WebAuthn", KeyAccess::Read);
        return key.IsOk() ? key.Value()->Subkeys().Value().size() : 0;
    }

    std::shared_ptr<CAuthenticator> m_authenticator;
};

TEST_F(CAuthenticationPasskeyTest, APasskeyIsMadeAndSignsIn) {
    const CSoftAuthenticator passkey;
    const std::string challenge = BeginRegistration();
    EXPECT_EQ(Register(challenge, passkey, "Ann \xC3\xA4").status, 200);
    EXPECT_EQ(ErrorOf(Register(challenge, passkey)), message::kChallengeUnknown) << "a challenge counts once";
    EXPECT_EQ(UserKey(L"ann")->Query(L"DisplayName").Value().AsText(), L"Ann \u00e4");
    const auto stored = UserKey(L"ann")->Open(L"WebAuthn", KeyAccess::Read).Value();
    const auto names = stored->Subkeys().Value();
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(FromBase64(ToUtf8(names[0])).value().size(), 8u);
    const auto credential = stored->Open(names[0], KeyAccess::Read).Value();
    EXPECT_EQ(credential->Query(L"Id").Value(), (CValue{ValueType::Binary, passkey.credentialId}));
    EXPECT_EQ(credential->Query(L"AAGUID").Value(), (CValue{ValueType::Binary, passkey.aaguid}));
    EXPECT_EQ(credential->Query(L"PublicKey").Value(), (CValue{ValueType::Binary, passkey.PublicKey()}));

    // The watcher brings it into the index, as after a start.
    WaitUntil([&] { return SignIn("x", passkey).status == 400; }, "the loaded credential");
    const Outcome signedIn = SignIn(BeginSignIn(), passkey);
    ASSERT_EQ(signedIn.status, 200) << ToUtf8(signedIn.failure.Text());
    EXPECT_EQ(CallerWith(*m_authenticator, signedIn.token), L"ann/2");
    const nlohmann::json expected{{"allAcceptedCredentialIds", {ToBase64Url(passkey.credentialId)}},
                                  {"displayName", "Ann \xC3\xA4"},
                                  {"name", "ann"},
                                  {"userId", ToBase64Url(UserKey(L"ann")->Query(L"Identity").Value().data)}};
    EXPECT_EQ(signedIn.document, expected.dump());
    m_clock.Turn(kTimeout + std::chrono::seconds(1));
    EXPECT_EQ(CallerWith(*m_authenticator, signedIn.token), L"/1") << "never a long-lived token";
}

TEST_F(CAuthenticationPasskeyTest, OptionsSayWhatThePageNeeds) {
    const CSoftAuthenticator passkey = RegisteredPasskey();
    const std::string id = ToBase64Url(UserKey(L"ann")->Query(L"Identity").Value().data);
    const nlohmann::json credentials = {{{"id", ToBase64Url(passkey.credentialId)}, {"type", "public-key"}}};
    nlohmann::json expected = {
        {"attestation", "direct"},
        {"attestationFormats", {"packed", "tpm"}},
        {"authenticatorSelection", {{"userVerification", "required"}}},
        {"excludeCredentials", credentials},
        {"pubKeyCredParams",
         {{{"alg", -7}, {"type", "public-key"}}, {{"alg", -257}, {"type", "public-key"}}}},
        {"rp", {{"id", "example.org"}, {"name", "The archive"}}},
        {"user", {{"displayName", "A"}, {"id", id}, {"name", "ann"}}}};
    const Outcome creation =
        m_authenticator->CreationOptions({UserIdentity(L"ANN"), L"secret", L"A", L"The archive"});
    expected["challenge"] = nlohmann::json::parse(creation.document).at("challenge");
    EXPECT_EQ(creation.document, expected.dump());
    const Outcome plain = m_authenticator->CreationOptions({UserIdentity(L"bob"), L"secret", {}, {}});
    EXPECT_EQ(plain.document.find("excludeCredentials"), std::string::npos);
    EXPECT_EQ(plain.document.find("The archive"), std::string::npos);

    const Outcome request = m_authenticator->RequestOptions(UserIdentity(L"ann"));
    expected = {{"allowCredentials", credentials},
                {"challenge", nlohmann::json::parse(request.document).at("challenge")},
                {"rpId", "example.org"},
                {"userVerification", "required"}};
    EXPECT_EQ(request.document, expected.dump());
    EXPECT_NE(m_authenticator->RequestOptions(UserIdentity(L"bob")).document.find("\"allowCredentials\":[]"),
              std::string::npos);
}

TEST_F(CAuthenticationPasskeyTest, EachCeremonyNeedsItsOwnPendingChallenge) {
    const CSoftAuthenticator passkey = RegisteredPasskey();
    EXPECT_EQ(ErrorOf(SignIn("never issued", passkey)), message::kChallengeMissing);
    const std::string replaced = BeginSignIn();
    m_clock.Turn(std::chrono::seconds(1));
    const std::string current = BeginSignIn();
    EXPECT_EQ(ErrorOf(SignIn(replaced, passkey)), message::kChallengeMismatch);
    m_clock.Turn(std::chrono::seconds(600));
    EXPECT_EQ(SignIn(current, passkey).status, 200) << "600 seconds are not too many";
    EXPECT_EQ(ErrorOf(SignIn(current, passkey)), message::kChallengeMissing) << "it counts once";
    const std::string late = BeginSignIn();
    m_clock.Turn(std::chrono::seconds(601));
    EXPECT_EQ(ErrorOf(SignIn(late, passkey)), message::kChallengeExpired);

    CSoftAuthenticator another;
    another.credentialId = "another";
    const std::string registration = BeginRegistration();
    m_clock.Turn(std::chrono::seconds(1));
    BeginSignIn();
    EXPECT_EQ(ErrorOf(Register(registration, another)), message::kChallengeUnknown);
    EXPECT_EQ(ErrorOf(Register(BeginSignIn(), another)), message::kChallengeUnknown)
        << "anybody is given a challenge for signing in";
    const std::string before = BeginRegistration();
    EXPECT_EQ(
        m_authenticator->ChangePassword({UserIdentity(L"ann"), std::nullopt, L"secret", L"better"}).status,
        200);
    EXPECT_EQ(ErrorOf(Register(before, another)), message::kChallengeUnknown)
        << "it was given for the old password";
    EXPECT_EQ(StoredPasskeys(L"ann"), 1u);
}

TEST_F(CAuthenticationPasskeyTest, AReloadBetweenOptionsAndResultChangesNothing) {
    const auto reload = [&] {
        m_clock.Turn(std::chrono::seconds(1));
        ASSERT_TRUE(m_authenticator->LoadUsers().IsOk());
    };
    const CSoftAuthenticator passkey;
    const std::string registration = BeginRegistration();
    reload();
    EXPECT_EQ(Register(registration, passkey).status, 200);
    reload();
    const std::string signIn = BeginSignIn();
    reload();
    EXPECT_EQ(SignIn(signIn, passkey).status, 200);
}

TEST_F(CAuthenticationPasskeyTest, WhoBecomesAnotherUserHasNoChallenge) {
    const CSoftAuthenticator passkey = RegisteredPasskey();
    const std::string registration = BeginRegistration();
    SetUserValue(L"ann", L"Identity", {ValueType::Binary, "another identity"});
    ASSERT_TRUE(m_authenticator->LoadUsers().IsOk());
    CSoftAuthenticator another;
    another.credentialId = "another";
    EXPECT_EQ(ErrorOf(Register(registration, another)), message::kChallengeUnknown);
    EXPECT_EQ(ErrorOf(SignIn("x", passkey)), message::kChallengeMissing);

    const std::string gone = BeginRegistration(L"bob");
    ASSERT_EQ(UsersKey()->DeleteTree(L"bob"), ErrorCode::Success);
    ASSERT_TRUE(m_authenticator->LoadUsers().IsOk());
    EXPECT_EQ(ErrorOf(Register(gone, another)), message::kChallengeUnknown);
}

TEST_F(CAuthenticationPasskeyTest, ACredentialBelongsToOneUser) {
    const CSoftAuthenticator passkey;
    EXPECT_EQ(Register(BeginRegistration(), passkey).status, 200);
    // Not in the index yet, but known.
    const Outcome twice = Register(BeginRegistration(L"bob"), passkey);
    EXPECT_EQ(twice.status, 400);
    EXPECT_EQ(ErrorOf(twice), 183u);
    EXPECT_EQ(StoredPasskeys(L"bob"), 0u);
}

TEST_F(CAuthenticationPasskeyTest, PasskeysOfOneInstantHaveKeysOfTheirOwn) {
    for (const char* id : {"first", "second", "third"}) {
        CSoftAuthenticator passkey;
        passkey.credentialId = id;
        EXPECT_EQ(Register(BeginRegistration(), passkey).status, 200);
    }
    EXPECT_EQ(StoredPasskeys(L"ann"), 3u);
}

TEST_F(CAuthenticationPasskeyTest, APasskeyThatCannotBeWrittenIsNotKept) {
    const CSoftAuthenticator passkey;
    const std::string challenge = BeginRegistration();
    for (int call = 1; call <= 4; ++call) {
        m_registry->Faults().Fail(RegistryOperation::Set, ErrorCode::DiskFull, call);
        const Outcome outcome = Register(challenge, passkey, "Name");
        m_registry->Faults().FailNothing();
        EXPECT_EQ(outcome.status, 400);
        EXPECT_EQ(ErrorOf(outcome), ToNumber(ErrorCode::DiskFull));
        EXPECT_EQ(StoredPasskeys(L"ann"), 0u);
    }
    EXPECT_EQ(m_authenticator->CreationOptions({UserIdentity(L"bob"), L"secret", {}, {}}).status, 200);
    EXPECT_EQ(Register(challenge, passkey, "Name").status, 200) << "the challenge is pending still";
}

TEST_F(CAuthenticationPasskeyTest, OfTwoEqualPostsOneCounts) {
    const CSoftAuthenticator passkey = RegisteredPasskey();
    for (int turn = 0; turn != 20; ++turn) {
        m_clock.Turn(std::chrono::seconds(1));
        const std::string challenge = BeginSignIn();
        const auto post = [&] { return SignIn(challenge, passkey).status; };
        auto other = std::async(std::launch::async, post);
        const int sum = post() + other.get();
        EXPECT_EQ(sum, 600) << "one 200 and one 400";
    }
    CSoftAuthenticator another;
    for (int turn = 0; turn != 20; ++turn) {
        m_clock.Turn(std::chrono::seconds(1));
        another.credentialId = "credential " + std::to_string(turn);
        const std::string challenge = BeginRegistration();
        const auto post = [&] { return Register(challenge, another).status; };
        auto other = std::async(std::launch::async, post);
        EXPECT_EQ(post() + other.get(), 600);
    }
    EXPECT_EQ(StoredPasskeys(L"ann"), 21u);
}

TEST_F(CAuthenticationPasskeyTest, UnknownCredentialsAreNamedAndAFloodOfErrorsIsCounted) {
    CSoftAuthenticator passkey;
    passkey.credentialId = std::string("\x00\x0A\xFF\x10", 4);
    const Outcome unknown = SignIn("x", passkey);
    EXPECT_EQ(unknown.status, 404);
    EXPECT_EQ(unknown.failure.Error()->GetMessageId(), message::kCredentialUnknown);
    EXPECT_EQ(unknown.failure.Error()->GetInsert(0), L"0 a ff 10");

    Ignore(m_events.Take());
    for (int i = 0; i != 25; ++i) m_authenticator->ReportPasskeyFailure(unknown.failure);
    EXPECT_EQ(WithId(m_events.Take(), message::kCredentialUnknown).size(), 10u);
    m_clock.Turn(std::chrono::seconds(1));
    m_authenticator->ReportPasskeyFailure(unknown.failure);
    const auto events = m_events.Take();
    EXPECT_EQ(WithId(events, message::kCredentialUnknown).size(), 1u);
    const auto counts = WithId(events, message::kStandardException);
    ASSERT_EQ(counts.size(), 1u);
    EXPECT_EQ(counts[0].strings[0].substr(0, 3), L"15 ");
}

}  // namespace
}  // namespace quorbel
