#include "tests/support/service/SoftAuthenticator.h"

#include "platform/crypto/Base64.h"
#include "platform/crypto/Digest.h"

namespace quorbel {

namespace {

std::string ClientData(const char* type, std::string_view challenge) {
    return std::string(R"({"type":")") + type + R"(","challenge":")" + ToBase64Url(challenge) +
           R"(","origin":"https://example.org","crossOrigin":false})";
}

const CSoftKey& AttestationKey(std::optional<int> algorithm) {
    return CSoftKey::Shared(algorithm == kRs1 ? CSoftKey::Kind::Rsa2048 : CSoftKey::Kind::P256);
}

/// "alg", "sig" and "x5c".
cbor::CMembers Signed(std::string_view hash, std::optional<int> algorithm) {
    using namespace cbor;
    const CSoftKey& key = AttestationKey(algorithm);
    // A digest of SHA-1's length is all that can be signed in its name.
    const bool isSha1 = key.IsRsa() && hash.size() == 20;
    const std::string signature =
        key.IsRsa() ? key.SignRsa(isSha1 ? SignatureHash::Sha1 : SignatureHash::Sha256, hash)
                    : key.SignEcdsa(hash);
    CMembers members;
    if (algorithm) members.emplace_back(Text("alg"), Integer(*algorithm));
    members.emplace_back(Text("sig"), Bytes(signature));
    members.emplace_back(Text("x5c"), Array({Bytes(key.Certificate())}));
    return members;
}

/// A TPMS_ATTEST structure (TPM 2.0 Library, Structures) for the certification of a key.
std::string CertifiedInfo(std::string_view extraData, std::string_view publicArea) {
    const std::string name = std::string("\x00\x22\x00\x0B", 4);
    const std::string signer = name + std::string(32, 's');
    const std::string clockAndFirmware(17 + 8, 'c');
    return std::string("\xFFTCG\x80\x17", 6) + signer + std::string("\x00\x14", 2) + std::string(extraData) +
           clockAndFirmware + name + Sha256({publicArea}) + name + std::string(32, 'q');
}

}  // namespace

std::string CSoftAttestation::Object() const {
    using namespace cbor;
    return Map({{Text("fmt"), Text(format)},
                {Text("attStmt"), Map(statement)},
                {Text("authData"), Bytes(authenticatorData)}});
}

CRegistrationResponse CSoftAttestation::Response() const {
    return {authenticatorData, clientDataJson, ToBase64Url(Object())};
}

nlohmann::json CSoftAttestation::Json() const {
    return {{"type", "public-key"},
            {"response",
             {{"authenticatorData", ToBase64Url(authenticatorData)},
              {"clientDataJSON", ToBase64Url(clientDataJson)},
              {"publicKey", ToBase64Url("not looked at")},
              {"attestationObject", ToBase64Url(Object())}}}};
}

std::string CSoftAuthenticator::RelyingPartyHash() const {
    return Sha256({relyingPartyId});
}

std::string CSoftAuthenticator::AuthenticatorData() const {
    const std::string counter(4, '\x07');
    const char length[] = {static_cast<char>(credentialId.size() >> 8),
                           static_cast<char>(credentialId.size() & 0xFF)};
    return RelyingPartyHash() + static_cast<char>(flags) + counter + aaguid + std::string(length, 2) +
           credentialId + PublicKey();
}

CSoftAttestation CSoftAuthenticator::None(std::string_view challenge) const {
    return {"none", {}, AuthenticatorData(), ClientData("webauthn.create", challenge)};
}

CSoftAttestation CSoftAuthenticator::Packed(std::string_view challenge, std::optional<int> algorithm) const {
    CSoftAttestation made = None(challenge);
    made.format = "packed";
    made.statement = Signed(Sha256({made.authenticatorData, Sha256({made.clientDataJson})}), algorithm);
    return made;
}

CSoftAttestation CSoftAuthenticator::Tpm(std::string_view challenge, std::optional<int> algorithm) const {
    using namespace cbor;
    CSoftAttestation made = None(challenge);
    made.format = "tpm";
    const std::string publicArea = "the public area of the certified key";
    const std::string info =
        CertifiedInfo(Sha1({made.authenticatorData, Sha256({made.clientDataJson})}), publicArea);
    made.statement = Signed(Sha1({info}), algorithm);
    made.statement.emplace_back(Text("ver"), Text("2.0"));
    made.statement.emplace_back(Text("certInfo"), Bytes(info));
    made.statement.emplace_back(Text("pubArea"), Bytes(publicArea));
    return made;
}

CAssertionResponse CSoftAuthenticator::Assertion(std::string_view challenge) const {
    CAssertionResponse response;
    response.authenticatorData =
        RelyingPartyHash() + static_cast<char>(flags & ~0x40) + std::string(4, '\x08');
    response.clientDataJson = ClientData("webauthn.get", challenge);
    const std::string hash = Sha256({response.authenticatorData, Sha256({response.clientDataJson})});
    response.signature = key.IsRsa() ? key.SignRsa(SignatureHash::Sha256, hash) : key.SignEcdsa(hash);
    return response;
}

nlohmann::json CSoftAuthenticator::AssertionJson(std::string_view challenge) const {
    const CAssertionResponse response = Assertion(challenge);
    return {{"id", ToBase64Url(credentialId)},
            {"type", "public-key"},
            {"response",
             {{"authenticatorData", ToBase64Url(response.authenticatorData)},
              {"clientDataJSON", ToBase64Url(response.clientDataJson)},
              {"signature", ToBase64Url(response.signature)}}}};
}

}  // namespace quorbel
