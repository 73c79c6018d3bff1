#include "auth/passkeys/Assertion.h"
#include "tests/auth/passkeys/Outcome.h"
#include "tests/support/EventRecorder.h"
#include "tests/support/service/SoftAuthenticator.h"

namespace quorbel {
namespace {

using KeyKind = CSoftKey::Kind;

constexpr KeyKind kKinds[] = {KeyKind::P256, KeyKind::Rsa2048};

std::string Verify(const CAssertionResponse& response, std::string_view publicKey,
                   std::string_view challenge = kChallenge) {
    return Outcome(
        VerifyAssertion(response, L"ann", publicKey, challenge, CSoftAuthenticator().RelyingPartyHash()));
}

class Assertion : public testing::Test {
 protected:
    const CRecordedEventLog m_log;
};

TEST_F(Assertion, IsAcceptedForEveryAlgorithm) {
    for (const KeyKind kind : kKinds) {
        CSoftAuthenticator authenticator(kind);
        for (const std::uint8_t flags : {0x00, 0x01, 0x05, 0xFF}) {  // flags are not looked at
            authenticator.flags = flags;
            const CAssertionResponse response = authenticator.Assertion(kChallenge);
            EXPECT_EQ(Verify(response, authenticator.PublicKey()), "ok");
            EXPECT_EQ(Verify(response, authenticator.PublicKey() + "extension data"), "ok");
        }
    }
}

TEST_F(Assertion, FailsOneCheckAtATime) {
    using namespace cbor;
    const CSoftAuthenticator ec(KeyKind::P256), rsa(KeyKind::Rsa2048);
    const CAssertionResponse response = ec.Assertion(kChallenge);
    CAssertionResponse withoutChallenge = response, ofOtherSite = response, cut = response, raw = response;
    withoutChallenge.clientDataJson = "{}";
    cut.authenticatorData.resize(36);
    raw.signature = ConvertASN1ToRaw(response.signature);
    CSoftAuthenticator other;
    other.relyingPartyId = "example.com";
    ofOtherSite = other.Assertion(kChallenge);
    const auto key = [](const CMembers& changes) {
        CMembers members{{Integer(3), Integer(-7)},
                         {Integer(-2), Bytes(CSoftKey::Shared(KeyKind::P256).X())},
                         {Integer(-3), Bytes(CSoftKey::Shared(KeyKind::P256).Y())}};
        for (const auto& [label, value] : changes) {
            std::erase_if(members, [&](const auto& member) { return member.first == label; });
            if (!value.empty()) members.emplace_back(label, value);
        }
        return Map(members);
    };
    const std::string modulus = Bytes(CSoftKey::Shared(KeyKind::Rsa2048).Modulus());
    const CMembers rsaMembers{{Integer(3), Integer(-257)}, {Integer(-3), ""}, {Integer(-1), modulus}};
    const auto rsaKey = [&](const std::string& exponent) {
        CMembers members = rsaMembers;
        members.emplace_back(Integer(-2), exponent);
        return key(members);
    };
    ASSERT_EQ(Verify(response, key({})), "ok");
    ASSERT_EQ(Verify(rsa.Assertion(kChallenge), rsaKey(Bytes(std::string("\x01\x00\x01", 3)))), "ok");
    const std::tuple<const char*, CAssertionResponse, std::string, std::string> cases[] = {
        {"no challenge", withoutChallenge, ec.PublicKey(), "error 13: challenge"},
        {"another challenge", ec.Assertion("another"), ec.PublicKey(), "C0000A98: ann"},
        {"empty challenge", ec.Assertion(""), ec.PublicKey(), "C0000A98: ann"},
        {"longer challenge", ec.Assertion(std::string(kChallenge) + '\0'), ec.PublicKey(), "C0000A98: ann"},
        {"short data", cut, ec.PublicKey(), "C0000A8C: Data too short to be valid authData."},
        {"another site", ofOtherSite, ec.PublicKey(), "C0000A99: ann"},
        {"no key", response, "", "error 13: PublicKey"},
        {"no algorithm", response, key({{Integer(3), ""}}), "error 13: 3"},
        {"EdDSA", response, key({{Integer(3), Integer(-8)}}), "error 87: Algorithm"},
        {"RS1", response, key({{Integer(3), Integer(-65535)}}), "error 87: Algorithm"},
        {"no x", response, key({{Integer(-2), ""}}), "error 13: -2"},
        {"x of text", response, key({{Integer(-2), Text("x")}}), "error 13: -2"},
        {"no y", response, key({{Integer(-3), ""}}), "error 13: -3"},
        {"x cut", response, key({{Integer(-2), Bytes(std::string(31, 'x'))}}), kBadImport},
        {"off the curve", response, key({{Integer(-2), Bytes(std::string(32, 'x'))}}), kBadImport},
        {"another key", response, CSoftKey(KeyKind::P256).Cose(), kBadSignature},
        {"signature not in DER", raw, ec.PublicKey(), kBadConversion},
        {"EC signature, RSA key", response, rsa.PublicKey(), kBadSignature},
        {"RSA signature, EC key", rsa.Assertion(kChallenge), ec.PublicKey(), kBadConversion},
        {"no modulus", response, key({{Integer(3), Integer(-257)}}), "error 13: -1"},
        {"no exponent", response, rsaKey(""), "error 13: -2"},
        {"exponent 1", response, rsaKey(Bytes("\x01")), kBadImport},
        {"small modulus", response, CSoftKey::Shared(KeyKind::Rsa512).Cose(), kBadImport},
    };
    for (const auto& [name, posted, publicKey, expected] : cases)
        EXPECT_EQ(Verify(posted, publicKey), expected) << name;
}

TEST_F(Assertion, RefusesPartsThatAreCut) {
    for (const KeyKind kind : kKinds) {
        const CSoftAuthenticator authenticator(kind);
        const CAssertionResponse response = authenticator.Assertion(kChallenge);
        const std::string key = authenticator.PublicKey();
        ASSERT_EQ(Verify(response, key), "ok");
        CAssertionResponse cut = response;
        for (std::size_t size = 0; size < response.authenticatorData.size(); ++size) {
            cut.authenticatorData = response.authenticatorData.substr(0, size);
            EXPECT_EQ(Verify(cut, key), "C0000A8C: Data too short to be valid authData.") << size;
        }
        cut = response;
        for (std::size_t size = 0; size < response.clientDataJson.size(); ++size) {
            cut.clientDataJson = response.clientDataJson.substr(0, size);
            EXPECT_EQ(Verify(cut, key), "error 13: clientDataJSON") << size;
        }
        cut = response;
        for (std::size_t size = 0; size < response.signature.size(); ++size) {
            cut.signature = response.signature.substr(0, size);
            EXPECT_EQ(Verify(cut, key), kind == KeyKind::P256 ? kBadConversion : kBadSignature) << size;
        }
        for (std::size_t size = 0; size < key.size(); ++size)
            EXPECT_EQ(Verify(response, key.substr(0, size)), "error 13: PublicKey") << size;
    }
}

TEST_F(Assertion, RefusesEveryFlipInWhatIsSigned) {
    for (const KeyKind kind : kKinds) {
        const CSoftAuthenticator authenticator(kind);
        const CAssertionResponse response = authenticator.Assertion(kChallenge);
        const std::string key = authenticator.PublicKey();
        ASSERT_EQ(Verify(response, key), "ok");
        for (std::string CAssertionResponse::*part :
             {&CAssertionResponse::authenticatorData, &CAssertionResponse::clientDataJson,
              &CAssertionResponse::signature}) {
            CAssertionResponse flipped = response;
            for (std::size_t bit = 0; bit < (response.*part).size() * 8; ++bit) {
                flipped.*part = WithBitFlipped(response.*part, bit);
                EXPECT_NE(Verify(flipped, key), "ok") << bit;
            }
        }
    }
}

TEST_F(Assertion, DoesNotReadKindAndCurveOfTheKey) {
    // The algorithm says both.
    const std::pair<KeyKind, std::set<std::size_t>> cases[] = {{KeyKind::P256, {1, 2, 5, 6}},
                                                               {KeyKind::Rsa2048, {1, 2}}};
    for (const auto& [kind, unread] : cases) {
        const CSoftAuthenticator authenticator(kind);
        const CAssertionResponse response = authenticator.Assertion(kChallenge);
        const std::string key = authenticator.PublicKey();
        ASSERT_EQ(Verify(response, key), "ok");
        for (std::size_t bit = 0; bit < key.size() * 8; ++bit) {
            if (unread.contains(bit / 8)) continue;
            EXPECT_NE(Verify(response, WithBitFlipped(key, bit)), "ok") << bit;
        }
        EXPECT_EQ(Verify(response, WithBitFlipped(key, 2 * 8)), "ok");
    }
}

}  // namespace
}  // namespace quorbel
