#include "auth/passkeys/Registration.h"
#include "platform/crypto/Base64.h"
#include "platform/crypto/Digest.h"
#include "tests/auth/passkeys/Outcome.h"
#include "tests/support/EventRecorder.h"
#include "tests/support/service/SoftAuthenticator.h"

namespace quorbel {
namespace {

std::string Verify(const CRegistrationResponse& response) {
    CVerifiedCredential credential;
    return Outcome(VerifyAttestation(response, CSoftAuthenticator().RelyingPartyHash(), L"ann", credential));
}

/// With the attestation object's bytes changed.
std::string VerifyObject(CRegistrationResponse response, std::string_view object) {
    response.attestationObject = ToBase64Url(object);
    return Verify(response);
}

/// The value of a statement's member, to be changed.
std::string& Member(CSoftAttestation& made, std::string_view name) {
    for (auto& [key, value] : made.statement)
        if (key == cbor::Text(name)) return value;
    ADD_FAILURE() << name;
    return made.statement.front().second;
}

void Remove(CSoftAttestation& made, std::string_view name) {
    std::erase_if(made.statement, [name](const auto& member) { return member.first == cbor::Text(name); });
}

/// The content of a byte string without its head.
std::string ContentOf(std::string_view item) {
    for (std::size_t head : {1U, 2U, 3U})
        if (cbor::Bytes(item.substr(head)) == item) return std::string(item.substr(head));
    ADD_FAILURE();
    return {};
}

using Change = std::function<void(CSoftAttestation&)>;

class Registration : public testing::Test {
 protected:
    const CRecordedEventLog m_log;
    const CSoftAuthenticator m_authenticator;
};

TEST_F(Registration, AcceptsEveryFormatAndAlgorithm) {
    for (const auto kind : {CSoftKey::Kind::P256, CSoftKey::Kind::Rsa2048}) {
        for (const std::uint8_t flags : {0x45, 0x5D, 0xC5}) {
            CSoftAuthenticator authenticator(kind);
            authenticator.flags = flags;
            if (flags == 0xC5)
                authenticator.extensions = cbor::Map({{cbor::Text("credProtect"), cbor::Integer(2)}});
            const CSoftAttestation accepted[] = {
                authenticator.None(kChallenge),       authenticator.Packed(kChallenge, std::nullopt),
                authenticator.Packed(kChallenge, -7), authenticator.Tpm(kChallenge, std::nullopt),
                authenticator.Tpm(kChallenge, -7),    authenticator.Tpm(kChallenge, kRs1),
            };
            for (const CSoftAttestation& made : accepted) {
                CVerifiedCredential credential;
                EXPECT_EQ(Outcome(VerifyAttestation(made.Response(), authenticator.RelyingPartyHash(), L"ann",
                                                    credential)),
                          "ok")
                    << made.format;
                EXPECT_EQ(credential.aaguid, authenticator.aaguid);
                EXPECT_EQ(credential.credentialId, authenticator.credentialId);
                EXPECT_EQ(credential.publicKey, authenticator.PublicKey());
            }
        }
    }
}

TEST_F(Registration, NeverHasAPackedAttestationOfSha1) {
    // What is signed is a SHA-256, which does not fit the hash that the algorithm names.
    EXPECT_EQ(Verify(m_authenticator.Packed(kChallenge, kRs1).Response()), kBadSignature);
}

TEST_F(Registration, FailsOneCheckAtATime) {
    using namespace cbor;
    const auto none = [this] { return m_authenticator.None(kChallenge); };
    const auto packed = [this] { return m_authenticator.Packed(kChallenge, -7); };
    const auto tpm = [this] { return m_authenticator.Tpm(kChallenge, kRs1); };
    const std::string certificate = CSoftKey::Shared(CSoftKey::Kind::P256).Certificate();
    struct CCase {
        const char* name;
        CSoftAttestation made;
        Change change;
        std::string expected;
    };
    const CCase cases[] = {
        {"no format", none(), [](auto& made) { made.format = ""; }, "C0000A95: ann"},
        {"another format", packed(), [](auto& made) { made.format = "fido-u2f"; }, "C0000A94: ann, fido-u2f"},
        {"another case", packed(), [](auto& made) { made.format = "Packed"; }, "C0000A94: ann, Packed"},
        {"another format without certificate", none(), [](auto& made) { made.format = "apple"; },
         "C0000A95: ann"},
        {"packed without certificate", packed(), [](auto& made) { Remove(made, "x5c"); }, "C0000A95: ann"},
        {"packed with no certificate", packed(), [](auto& made) { Member(made, "x5c") = Array({}); },
         "C0000A95: ann"},
        {"tpm without certificate", tpm(), [](auto& made) { Remove(made, "x5c"); }, "C0000A95: ann"},
        {"certificate damaged", packed(),
         [](auto& made) { Member(made, "x5c") = Array({Bytes("certificate")}); }, kBadCertificate},
        {"second certificate damaged", packed(),
         [&](auto& made) {
             Member(made, "x5c") = Array({Bytes(certificate), Bytes("certificate")});
         },
         kBadCertificate},
        {"certificate of a weak key", packed(),
         [](auto& made) {
             Member(made, "x5c") = Array({Bytes(CSoftKey::Shared(CSoftKey::Kind::Rsa512).Certificate())});
         },
         kBadCertificateKey},
        {"none with a damaged certificate", none(),
         [](auto& made) {
             made.statement = {{Text("x5c"), Array({Bytes("certificate")})}};
         },
         kBadCertificate},
        {"certificate of another key", packed(),
         [](auto& made) {
             Member(made, "x5c") = Array({Bytes(CSoftKey(CSoftKey::Kind::P256).Certificate())});
         },
         kBadSignature},
        {"certificate of another kind of key", packed(),
         [](auto& made) {
             Member(made, "x5c") = Array({Bytes(CSoftKey::Shared(CSoftKey::Kind::Rsa2048).Certificate())});
         },
         kWrongKeyKind},
        {"first certificate counts", packed(),
         [&](auto& made) {
             Member(made, "x5c") =
                 Array({Bytes(CSoftKey::Shared(CSoftKey::Kind::Rsa2048).Certificate()), Bytes(certificate)});
         },
         kWrongKeyKind},
        {"no signature", packed(), [](auto& made) { Remove(made, "sig"); }, kBadConversion},
        {"signature not in DER", packed(),
         [](auto& made) { Member(made, "sig") = Bytes(std::string(64, 's')); }, kBadConversion},
        {"no RSA signature", tpm(), [](auto& made) { Remove(made, "sig"); }, kBadSignature},
        {"RS256", packed(), [](auto& made) { Member(made, "alg") = Integer(-257); }, "error 87: FFFFFEFF"},
        {"ES384", packed(), [](auto& made) { Member(made, "alg") = Integer(-35); }, "error 87: FFFFFFDD"},
        {"7", packed(), [](auto& made) { Member(made, "alg") = Integer(7); }, "error 87: 00000007"},
        {"RS1 with an EC key", packed(), [](auto& made) { Member(made, "alg") = Integer(kRs1); },
         kWrongKeyKind},
        {"tpm RS256", tpm(), [](auto& made) { Member(made, "alg") = Integer(-257); }, "error 87: FFFFFEFF"},
        {"no certified information", tpm(), [](auto& made) { Remove(made, "certInfo"); },
         "C0000A96: ann, attestation data hash miscompare"},
        {"no public area", tpm(), [](auto& made) { Remove(made, "pubArea"); },
         "C0000A96: ann, attestation name hash miscompare"},
        {"signed by another", tpm(), [](auto& made) { Member(made, "sig") = Bytes(std::string(256, 's')); },
         kBadSignature},
        {"other client data", tpm(), [](auto& made) { made.clientDataJson += ' '; },
         "C0000A96: ann, attestation data hash miscompare"},
        {"packed, other client data", packed(), [](auto& made) { made.clientDataJson += ' '; },
         kBadSignature},
        {"no ID and no key", none(),
         [](auto& made) {
             made.authenticatorData.resize(37);
             made.authenticatorData[32] = '\x05';
         },
         "error 13: authData"},
        {"no ID", none(),
         [](auto& made) {
             made.authenticatorData = made.authenticatorData.substr(0, 53) + std::string(2, '\0') + "key";
         },
         "error 13: authData"},
        {"no key", none(),
         [this](auto& made) { made.authenticatorData.resize(55 + m_authenticator.credentialId.size()); },
         "error 13: authData"},
    };
    for (const auto& [name, made, change, expected] : cases) {
        CSoftAttestation changed = made;
        change(changed);
        EXPECT_EQ(Verify(changed.Response()), expected) << name;
    }
}

TEST_F(Registration, WantsTheUserPresentAndVerified) {
    for (unsigned flags = 0; flags < 0x100; ++flags) {
        CSoftAuthenticator authenticator;
        authenticator.flags = static_cast<std::uint8_t>(flags);
        const std::string expected = (flags & 0x05) != 0x05 ? "C0000A93: ann, " + ToUtf8(ToHex(flags, 2))
                                     : (flags & 0x40) == 0  ? "error 13: authData"
                                                            : "ok";
        EXPECT_EQ(Verify(authenticator.Packed(kChallenge, -7).Response()), expected);
    }
}

TEST_F(Registration, IsForOneRelyingParty) {
    CSoftAuthenticator authenticator;
    authenticator.relyingPartyId = "example.com";
    for (const CSoftAttestation& made : {authenticator.None(kChallenge), authenticator.Packed(kChallenge, -7),
                                         authenticator.Tpm(kChallenge, kRs1)})
        EXPECT_EQ(Verify(made.Response()), "C0000A92: ann");
}

TEST_F(Registration, WantsTheDataThatWasSignedToBeTheDataThatIsRead) {
    CSoftAuthenticator other;
    other.aaguid = "another model id";
    const CSoftAttestation mine = m_authenticator.None(kChallenge);
    CRegistrationResponse response = mine.Response();
    response.authenticatorData = other.None(kChallenge).authenticatorData;
    EXPECT_EQ(Verify(response), "error 13: authenticatorData");
    // A good signature over the page's data does not vouch for the object's.
    CSoftAttestation packed = other.Packed(kChallenge, -7);
    response = packed.Response();
    packed.authenticatorData = mine.authenticatorData;
    EXPECT_EQ(VerifyObject(response, packed.Object()), "error 13: authenticatorData");
}

TEST_F(Registration, RefusesAnObjectThatIsCut) {
    for (const CSoftAttestation& made :
         {m_authenticator.None(kChallenge), m_authenticator.Packed(kChallenge, -7),
          m_authenticator.Tpm(kChallenge, kRs1)}) {
        const CRegistrationResponse response = made.Response();
        const std::string object = made.Object();
        EXPECT_EQ(VerifyObject(response, object), "ok");
        for (std::size_t size = 0; size < object.size(); ++size)
            EXPECT_EQ(VerifyObject(response, object.substr(0, size)), "error 13: attestationObject") << size;
        EXPECT_EQ(VerifyObject(response, object + '\0'), "error 13: attestationObject");
        CRegistrationResponse standard = response;
        standard.attestationObject = ToBase64(object) + "=";
        EXPECT_EQ(Verify(standard), "error 13: attestationObject");
    }
}

TEST_F(Registration, RefusesPartsThatAreCut) {
    const std::size_t idEnd = 55 + m_authenticator.credentialId.size();
    const CSoftAttestation packed = m_authenticator.Packed(kChallenge, -7);
    ASSERT_EQ(Verify(packed.Response()), "ok");
    for (std::size_t size = 0; size < packed.authenticatorData.size(); ++size) {
        CSoftAttestation cut = packed;
        cut.authenticatorData.resize(size);
        const std::string expected = size < 37   ? "C0000A8C: Data too short to be valid authData."
                                     : size < 55 ? "C0000A8C: Not enough data for attested credential header."
                                     : size < idEnd ? "C0000A8C: Not enough data for Credential ID."
                                                    : kBadSignature;
        EXPECT_EQ(Verify(cut.Response()), expected) << size;
    }
    for (std::size_t size = 0; size < packed.clientDataJson.size(); ++size) {
        CSoftAttestation cut = packed;
        cut.clientDataJson.resize(size);
        EXPECT_EQ(Verify(cut.Response()), kBadSignature) << size;
    }
}

TEST_F(Registration, RefusesAStatementWhoseMembersAreCut) {
    CSoftAttestation packed = m_authenticator.Packed(kChallenge, -7);
    const CSoftAttestation tpm = m_authenticator.Tpm(kChallenge, kRs1);
    struct CCase {
        CSoftAttestation made;
        const char* member;
        std::function<std::string(std::size_t)> expected;  ///< by the length that is left
    };
    const CCase cases[] = {
        {packed, "sig", [](std::size_t) { return kBadConversion; }},
        {tpm, "sig", [](std::size_t) { return kBadSignature; }},
        {tpm, "pubArea", [](std::size_t) { return "C0000A96: ann, attestation name hash miscompare"; }},
        {tpm, "certInfo",
         [](std::size_t size) {
             return size < 64    ? "C0000A96: ann, attestation data hash miscompare"
                    : size < 125 ? "C0000A96: ann, attestation name hash miscompare"
                                 : kBadSignature;
         }},
    };
    for (const auto& [made, member, expected] : cases) {
        ASSERT_EQ(Verify(made.Response()), "ok");
        CSoftAttestation cut = made;
        const std::string whole = ContentOf(Member(cut, member));
        for (std::size_t size = 0; size < whole.size(); ++size) {
            Member(cut, member) = cbor::Bytes(whole.substr(0, size));
            EXPECT_EQ(Verify(cut.Response()), expected(size)) << member << size;
        }
    }
    const std::string certificate = CSoftKey::Shared(CSoftKey::Kind::P256).Certificate();
    for (std::size_t size = 0; size < certificate.size(); ++size) {
        Member(packed, "x5c") = cbor::Array({cbor::Bytes(certificate.substr(0, size))});
        EXPECT_EQ(Verify(packed.Response()), kBadCertificate) << size;
    }
}

TEST_F(Registration, RefusesEveryFlipInWhatIsSigned) {
    struct CCase {
        CSoftAttestation made;
        std::vector<const char*> members;  ///< that hold the signature and what it vouches for
    };
    const CCase cases[] = {{m_authenticator.Packed(kChallenge, -7), {"sig"}},
                           {m_authenticator.Tpm(kChallenge, kRs1), {"sig", "certInfo", "pubArea"}}};
    for (const auto& [made, members] : cases) {
        ASSERT_EQ(Verify(made.Response()), "ok");
        for (std::size_t bit = 0; bit < made.authenticatorData.size() * 8; ++bit) {
            CSoftAttestation flipped = made;
            flipped.authenticatorData = WithBitFlipped(made.authenticatorData, bit);
            EXPECT_NE(Verify(flipped.Response()), "ok") << made.format << bit;
        }
        for (std::size_t bit = 0; bit < made.clientDataJson.size() * 8; ++bit) {
            CSoftAttestation flipped = made;
            flipped.clientDataJson = WithBitFlipped(made.clientDataJson, bit);
            EXPECT_NE(Verify(flipped.Response()), "ok") << made.format << bit;
        }
        for (const char* member : members) {
            CSoftAttestation flipped = made;
            const std::string whole = ContentOf(Member(flipped, member));
            for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
                Member(flipped, member) = cbor::Bytes(WithBitFlipped(whole, bit));
                EXPECT_NE(Verify(flipped.Response()), "ok") << made.format << member << bit;
            }
        }
    }
}

TEST_F(Registration, ReadsOfACertificateTheKeyAlone) {
    const CSoftKey& key = CSoftKey::Shared(CSoftKey::Kind::P256);
    const CSoftAttestation packed = m_authenticator.Packed(kChallenge, -7);
    ASSERT_EQ(Verify(packed.Response()), "ok");
    const std::string object = packed.Object();
    const std::size_t keyStart = object.find(key.X() + key.Y());
    ASSERT_NE(keyStart, std::string::npos);
    for (std::size_t bit = keyStart * 8; bit < (keyStart + 64) * 8; ++bit)
        EXPECT_EQ(VerifyObject(packed.Response(), WithBitFlipped(object, bit)), kBadCertificateKey) << bit;
    const std::size_t last =
        object.find(std::string("\x68") + "authData") - 1;  // of the certificate's signature
    EXPECT_EQ(VerifyObject(packed.Response(), WithBitFlipped(object, last * 8)), "ok");
}

TEST_F(Registration, ChecksTheseBitsOfDataThatNobodySigned) {
    const CSoftAttestation none = m_authenticator.None(kChallenge);
    ASSERT_EQ(m_authenticator.credentialId.size(), 32U);
    ASSERT_EQ(none.authenticatorData.size(), 55U + 32 + 77);
    struct CRange {
        std::size_t first, end;
        unsigned bits;         ///< of each byte that are checked
        const char* expected;  ///< where one of these is flipped
    };
    const CRange table[] = {
        {0, 32, 0xFF, "C0000A92: ann"},
        {32, 33, 0x01, "C0000A93: ann, 44"},
        {32, 33, 0x04, "C0000A93: ann, 41"},
        {32, 33, 0x40, "error 13: authData"},
        {53, 54, 0xFF, "C0000A8C: Not enough data for Credential ID."},  // longer than what follows
        {54, 55, 0x80, "C0000A8C: Not enough data for Credential ID."},
        {54, 55, 0x20, "error 13: authData"},  // of no length
    };
    std::map<std::size_t, std::string> expected;  // by bit
    for (const auto& [first, end, bits, outcome] : table)
        for (std::size_t bit = first * 8; bit < end * 8; ++bit)
            if ((bits >> bit % 8 & 1) != 0) expected[bit] = outcome;
    for (std::size_t bit = 0; bit < none.authenticatorData.size() * 8; ++bit) {
        CSoftAttestation flipped = none;
        flipped.authenticatorData = WithBitFlipped(none.authenticatorData, bit);
        const auto check = expected.find(bit);
        EXPECT_EQ(Verify(flipped.Response()), check == expected.end() ? "ok" : check->second) << bit;
        // In one of the two places alone every bit counts.
        EXPECT_NE(VerifyObject(none.Response(), flipped.Object()), "ok") << bit;
    }
    // All of the object's other bytes count, none of the client data does: whose challenge it is, the caller
    // asks.
    const std::string object = none.Object();
    for (std::size_t bit = 0; bit < object.size() * 8; ++bit)
        EXPECT_NE(VerifyObject(none.Response(), WithBitFlipped(object, bit)), "ok") << bit;
    CRegistrationResponse response = none.Response();
    response.clientDataJson = "anything";
    EXPECT_EQ(Verify(response), "ok");
}

}  // namespace
}  // namespace quorbel
