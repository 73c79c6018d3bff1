#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "auth/passkeys/Assertion.h"
#include "auth/passkeys/AttestationObject.h"
#include "auth/passkeys/AuthenticatorData.h"
#include "auth/passkeys/ClientData.h"
#include "auth/passkeys/CoseKey.h"
#include "auth/passkeys/Registration.h"
#include "platform/crypto/Base64.h"
#include "platform/crypto/PublicKey.h"

using namespace quorbel;

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

/// All of the content is found in the input, and its parts do not overlap.
void CheckAuthenticatorData(std::string_view input) {
    CAuthenticatorData data;
    if (!ParseAuthenticatorData(input, data).IsOk()) return;
    Require(input.starts_with(data.relyingPartyHash) && data.relyingPartyHash.size() == 32);
    if ((data.flags & CAuthenticatorData::kAttestedCredential) == 0) {
        Require((data.aaguid + data.credentialId + data.publicKey).empty());
        return;
    }
    Require(data.aaguid.size() == 16 && input.substr(37).starts_with(data.aaguid));
    Require(input.substr(55) == data.credentialId + data.publicKey);
}

void CheckAttestationObject(std::string_view input) {
    CAttestationObject object;
    if (!ParseAttestationObject(input, object).IsOk()) return;
    std::size_t size = object.authenticatorData.size() + object.signature.size() +
                       object.certifiedInfo.size() + object.publicArea.size();
    for (const std::string& certificate : object.certificates) size += certificate.size();
    Require(size < input.size());
    // Nothing may follow, and the end must not be missing.
    Require(!ParseAttestationObject(std::string(input) + '\0', object).IsOk());
    Require(!ParseAttestationObject(input.substr(0, input.size() - 1), object).IsOk());
}

/// With the data that the object holds itself, which "none" needs to be accepted.
void CheckRegistration(std::string_view input) {
    CAttestationObject object;
    CAuthenticatorData data;
    if (!ParseAttestationObject(input, object).IsOk()) return;
    if (!ParseAuthenticatorData(object.authenticatorData, data).IsOk()) return;
    const CRegistrationResponse response{object.authenticatorData, "{}", ToBase64Url(input)};
    CVerifiedCredential credential;
    if (!VerifyAttestation(response, data.relyingPartyHash, L"ann", credential).IsOk()) return;
    Require(!credential.credentialId.empty() && !credential.publicKey.empty() && (data.flags & 0x45) == 0x45);
}

void CheckClientData(std::string_view input) {
    CClientData data;
    if (!ParseClientData(input, data).IsOk()) return;
    Require(input.find(ToBase64Url(data.challenge)) != std::string_view::npos ||
            input.find('\\') != input.npos);
}

/// Signatures that nobody made are not accepted, whatever the key.
void CheckKey(std::string_view input) {
    CCoseKey key;
    if (!CCoseKey::Parse(input, key).IsOk()) return;
    const std::string data = std::string(32, 'h') + "\x05" + "ctr.";
    const std::string der("\x30\x06\x02\x01\x01\x02\x01\x01", 8);
    for (const std::string& signature : {der, std::string(256, 's')}) {
        const CStatus status = VerifyAssertion({data, R"({"challenge":"AAAA"})", signature}, L"ann", input,
                                               std::string(3, '\0'), std::string(32, 'h'));
        Require(!status.IsOk());
    }
}

void CheckSignature(std::string_view input) {
    const std::string raw = ConvertASN1ToRaw(input);
    Require(raw.empty() || (raw.size() == 64 && input.size() >= 8 && input.size() <= 72));
    Require(raw.empty() || ConvertASN1ToRaw(std::string(input) + '\0').empty());
}

}  // namespace

/// The first byte says what the others are.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0]) {
        case 'a': CheckAuthenticatorData(input); break;
        case 'c': CheckClientData(input); break;
        case 'k': CheckKey(input); break;
        case 'o':
            CheckAttestationObject(input);
            CheckRegistration(input);
            break;
        case 's': CheckSignature(input); break;
        default: break;
    }
    return 0;
}
