#include "auth/passkeys/AttestationObject.h"
#include "auth/passkeys/AuthenticatorData.h"
#include "auth/passkeys/Challenge.h"
#include "auth/passkeys/ClientData.h"
#include "auth/passkeys/CoseKey.h"
#include "tests/auth/passkeys/Outcome.h"
#include "tests/support/CborWriter.h"
#include "tests/support/EventRecorder.h"

namespace quorbel {
namespace {

using namespace std::literals;

constexpr char kNoHead[] = "C0000A8C: Data too short to be valid authData.";
constexpr char kNoCredentialHead[] = "C0000A8C: Not enough data for attested credential header.";
constexpr char kNoCredentialId[] = "C0000A8C: Not enough data for Credential ID.";

TEST(AuthenticatorData, IsReadAtItsOffsets) {
    const std::string hash(32, 'h'), aaguid(16, 'a'), id(300, 'i');
    const std::string bytes = hash + "\xC5" + "ctr." + aaguid + "\x01\x2C" + id + "key and extensions";
    CAuthenticatorData data;
    ASSERT_EQ(Outcome(ParseAuthenticatorData(bytes, data)), "ok");
    EXPECT_EQ(data.relyingPartyHash, hash);
    EXPECT_EQ(data.flags, 0xC5);
    EXPECT_EQ(data.aaguid, aaguid);
    EXPECT_EQ(data.credentialId, id);
    EXPECT_EQ(data.publicKey, "key and extensions");

    // Without the flag nothing behind the counter is read, and nothing is left of what was there before.
    ASSERT_EQ(Outcome(ParseAuthenticatorData(hash + "\x05" + "ctr." + "anything", data)), "ok");
    EXPECT_EQ(data.aaguid + data.credentialId + data.publicKey, "");
}

TEST(AuthenticatorData, SaysWhereItEndsTooSoon) {
    const CRecordedEventLog log;
    const std::string head = std::string(32, 'h') + "\x45" + "ctr.";
    const std::string bytes = head + std::string(16, 'a') + std::string("\x00\x05", 2) + "ident" + "key";
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
        const std::string expected = size < 37   ? kNoHead
                                     : size < 55 ? kNoCredentialHead
                                     : size < 60 ? kNoCredentialId
                                                 : "ok";
        CAuthenticatorData data;
        EXPECT_EQ(Outcome(ParseAuthenticatorData(bytes.substr(0, size), data)), expected) << size;
    }
    std::string plain = head;
    plain[32] = '\x05';
    CAuthenticatorData data;
    EXPECT_EQ(Outcome(ParseAuthenticatorData(plain, data)), "ok");
}

TEST(ClientData, NeedsAChallengeAlone) {
    const std::pair<std::string, const char*> cases[] = {
        {R"({"challenge":"AP8"})", "ok"},
        {R"({"challenge":""})", "ok"},
        {R"({"type":7,"challenge":"AP8","origin":null,"crossOrigin":"yes","topOrigin":[],"more":{}})", "ok"},
        {"\xEF\xBB\xBF{\"challenge\":\"AP8\"}", "ok"},
        {R"({})", "error 13: challenge"},
        {R"({"Challenge":"AP8"})", "error 13: challenge"},
        {R"({"challenge":7})", "error 13: challenge"},
        {R"({"challenge":null})", "error 13: challenge"},
        {R"({"challenge":["AP8"]})", "error 13: challenge"},
        {R"({"challenge":"AP8="})", "error 13: challenge"},
        {R"({"challenge":"AP9"})", "error 13: challenge"},
        {R"({"challenge":"A+8"})", "error 13: challenge"},
        {R"(["challenge"])", "error 13: clientDataJSON"},
        {R"("challenge")", "error 13: clientDataJSON"},
        {R"({"challenge":"AP8"}})", "error 13: clientDataJSON"},
        {R"({"challenge":"AP8",})", "error 13: clientDataJSON"},
        {"{\"challenge\":\"AP8\",\"origin\":\"\xC3\"}", "error 13: clientDataJSON"},
        {"{\"challenge\":\"AP8\"}\xFF", "error 13: clientDataJSON"},
        {"{\"challenge\":\"AP8\",\"n\":1e999}", "error 13: clientDataJSON"},
        {"", "error 13: clientDataJSON"},
    };
    for (const auto& [json, expected] : cases) {
        CClientData data;
        EXPECT_EQ(Outcome(ParseClientData(json, data)), expected) << json;
    }
    CClientData data;
    ASSERT_TRUE(ParseClientData(R"({"challenge":"AP8"})", data).IsOk());
    EXPECT_EQ(data.challenge, "\x00\xFF"sv);
    const std::string whole = R"({"type":"webauthn.get","challenge":"AP8"})";
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_EQ(Outcome(ParseClientData(whole.substr(0, size), data)), "error 13: clientDataJSON") << size;
}

TEST(ClientData, IsNestedAsDeepAsItEverNeedsToBe) {
    CClientData data;
    for (const auto& [open, close] : {std::pair("[", "]"), std::pair("{\"a\":", "}")}) {
        for (const auto& [depth, expected] : {std::pair(15, "ok"), std::pair(16, "error 13: clientDataJSON"),
                                              std::pair(100'000, "error 13: clientDataJSON")}) {
            std::string opened, closed;
            for (int i = 0; i < depth; ++i) {
                opened += open;
                closed += close;
            }
            const std::string json = R"({"challenge":"AP8","x":)" + opened + "1" + closed + "}";
            EXPECT_EQ(Outcome(ParseClientData(json, data)), expected) << depth;
            EXPECT_EQ(Outcome(ParseClientData(opened, data)), "error 13: clientDataJSON");
        }
    }
}

TEST(AttestationObject, NamesTheMemberAtFault) {
    using namespace cbor;
    const std::pair<std::string, std::string> format{Text("fmt"), Text("packed")},
        statement{Text("attStmt"), Map({})}, data{Text("authData"), Bytes("d")};
    const auto with = [&](const CMembers& members) {
        return Map({format, {Text("attStmt"), Map(members)}, data});
    };
    const std::tuple<const char*, std::string, const char*> cases[] = {
        {"least", Map({format, statement, data}), "ok"},
        {"another order", Map({data, statement, format}), "ok"},
        {"unknown members", Map({format, statement, data, {Text("epAtt"), "\xF5"}}), "ok"},
        {"unknown in the statement", with({{Text("ver"), Text("2.0")}}), "ok"},
        {"bytes behind", Map({format, statement, data}) + '\0', "error 13: attestationObject"},
        {"repeated", Map({format, statement, data, format}), "error 13: attestationObject"},
        {"repeated, unknown", Map({format, statement, data, {Text("x"), "\x01"}, {Text("x"), "\x01"}}),
         "error 13: attestationObject"},
        {"key of another kind", Map({format, statement, data, {Integer(1), Integer(1)}}),
         "error 13: attestationObject"},
        {"no map", Array({}), "error 13: attestationObject"},
        {"nothing", "", "error 13: attestationObject"},
        {"no format", Map({statement, data}), "error 13: fmt"},
        {"format of bytes", Map({{Text("fmt"), Bytes("none")}, statement, data}), "error 13: fmt"},
        {"format no UTF-8", Map({{Text("fmt"), Text("\xFF")}, statement, data}),
         "error 13: attestationObject"},
        {"no statement", Map({format, data}), "error 13: attStmt"},
        {"statement of an array", Map({format, {Text("attStmt"), Array({})}, data}), "error 13: attStmt"},
        {"statement repeats", with({{Text("alg"), Integer(-7)}, {Text("alg"), Integer(-7)}}),
         "error 13: attStmt"},
        {"statement of numbers", with({{Integer(1), Integer(-7)}}), "error 13: attStmt"},
        {"no data", Map({format, statement}), "error 13: authData"},
        {"data of text", Map({format, statement, {Text("authData"), Text("d")}}), "error 13: authData"},
        {"algorithm of text", with({{Text("alg"), Text("-7")}}), "error 13: alg"},
        {"algorithm below 32 bits", with({{Text("alg"), Integer(-2147483649)}}), "error 13: alg"},
        {"algorithm above 32 bits", with({{Text("alg"), Integer(2147483648)}}), "error 13: alg"},
        {"algorithms at the ends", with({{Text("alg"), Integer(-2147483648)}}), "ok"},
        {"signature of text", with({{Text("sig"), Text("s")}}), "error 13: sig"},
        {"certificates not in an array", with({{Text("x5c"), Bytes("c")}}), "error 13: x5c"},
        {"certificate of text", with({{Text("x5c"), Array({Bytes("c"), Text("c")})}}), "error 13: x5c"},
        {"certified information of text", with({{Text("certInfo"), Text("c")}}), "error 13: certInfo"},
        {"public area of a number", with({{Text("pubArea"), Integer(1)}}), "error 13: pubArea"},
    };
    for (const auto& [name, bytes, expected] : cases) {
        CAttestationObject object;
        EXPECT_EQ(Outcome(ParseAttestationObject(bytes, object)), expected) << name;
    }
}

TEST(AttestationObject, HoldsWhatTheStatementSays) {
    using namespace cbor;
    CAttestationObject object;
    const std::string bytes = Map({{Text("fmt"), Text("tpm")},
                                   {Text("attStmt"), Map({{Text("alg"), Integer(-65535)},
                                                          {Text("sig"), Bytes("s")},
                                                          {Text("x5c"), Array({Bytes("1"), Bytes("2")})},
                                                          {Text("certInfo"), Bytes("c")},
                                                          {Text("pubArea"), Bytes("p")}})},
                                   {Text("authData"), Bytes("d")}});
    ASSERT_EQ(Outcome(ParseAttestationObject(bytes, object)), "ok");
    EXPECT_EQ(object.format, L"tpm");
    EXPECT_EQ(object.algorithm, -65535);
    EXPECT_EQ(object.signature, "s");
    EXPECT_THAT(object.certificates, testing::ElementsAre("1", "2"));
    EXPECT_EQ(object.certifiedInfo, "c");
    EXPECT_EQ(object.publicArea, "p");
    EXPECT_EQ(object.authenticatorData, "d");
}

TEST(CoseKey, IsAMapOfIntegersThatExtensionsMayFollow) {
    using namespace cbor;
    const std::pair<std::string, std::string> algorithm{Integer(3), Integer(-7)}, x{Integer(-2), Bytes("x")};
    const std::pair<std::string, const char*> cases[] = {
        {Map({algorithm, x}), "ok"},
        {Map({algorithm, x}) + Map({{Text("credProtect"), Integer(2)}}), "ok"},
        {Map({algorithm, x}) + "\xFF", "ok"},
        {Map({x}), "error 13: 3"},
        {Map({{Integer(3), Text("-7")}}), "error 13: 3"},
        {Map({algorithm, x, algorithm}), "error 13: PublicKey"},
        {Map({algorithm, {Text("-2"), Bytes("x")}}), "error 13: PublicKey"},
        {Array({algorithm.second}), "error 13: PublicKey"},
        {"", "error 13: PublicKey"},
    };
    for (const auto& [bytes, expected] : cases) {
        CCoseKey key;
        EXPECT_EQ(Outcome(CCoseKey::Parse(bytes, key)), expected);
    }
    CCoseKey key;
    std::string bytes;
    ASSERT_EQ(Outcome(CCoseKey::Parse(Map({algorithm, x, {Integer(-1), Integer(1)}}), key)), "ok");
    EXPECT_EQ(key.Algorithm(), -7);
    EXPECT_EQ(Outcome(key.Read(CCoseKey::kX, bytes)), "ok");
    EXPECT_EQ(bytes, "x");
    EXPECT_EQ(Outcome(key.Read(CCoseKey::kY, bytes)), "error 13: -3");
    EXPECT_EQ(Outcome(key.Read(CCoseKey::kModulus, bytes)), "error 13: -1") << "no byte string";
}

TEST(Challenge, IsMadeOfIdentityAndTime) {
    // The digests were computed elsewhere.
    const std::string identity = "0123456789abcdef";
    EXPECT_EQ(MakeChallenge(identity, 0x0102030405060708),
              Unhex("9c0b1337171d0b581f42251e262972eb92dcb0bea2b78291ec045ce68903985f"));
    EXPECT_EQ(MakeChallenge("", -1),
              Unhex("12a3ae445661ce5dee78d0650d33362dec29c4f82af05e7e57fb595bbbacf0ca"));
}

}  // namespace
}  // namespace quorbel
