#include "auth/passkeys/Assertion.h"

#include "LibService/MessageIds.h"
#include "auth/passkeys/AuthenticatorData.h"
#include "auth/passkeys/ClientData.h"
#include "auth/passkeys/CoseKey.h"
#include "auth/passkeys/SignedHash.h"

namespace quorbel {

namespace {

CStatus ImportFailed(ErrorCode error, std::source_location where = std::source_location::current()) {
    const bool isLibrary = error == ErrorCode::NotSupported;
    return SystemError(error, isLibrary ? L"OpenAlgorithmProvider" : L"ImportKeyPair", where);
}

CStatus GetHash(const CAssertionResponse& response, std::string& hash) {
    hash = GetSignedHash(SignatureHash::Sha256, response.clientDataJson, response.authenticatorData);
    return hash.empty() ? SystemError(ErrorCode::CryptographyFailed, L"GetSignedHash") : CStatus();
}

CStatus VerifyEs256(const CAssertionResponse& response, const CCoseKey& storedKey) {
    std::string hash, x, y;
    RETURN_IF_FAILED(GetHash(response, hash));
    RETURN_IF_FAILED(storedKey.Read(CCoseKey::kX, x));
    RETURN_IF_FAILED(storedKey.Read(CCoseKey::kY, y));
    const auto key = CPublicKey::FromP256(x, y);
    if (!key.IsOk()) return ImportFailed(key.Error());
    const std::string signature = ConvertASN1ToRaw(response.signature);
    if (signature.empty()) return SystemError(ErrorCode::BadData, L"ConvertASN1ToRaw");
    const ErrorCode error = key.Value().VerifyEcdsa(hash, signature);
    return error == ErrorCode::Success ? CStatus() : SystemError(error, L"VerifySignature");
}

CStatus VerifyRs256(const CAssertionResponse& response, const CCoseKey& storedKey) {
    std::string hash, modulus, exponent;
    RETURN_IF_FAILED(GetHash(response, hash));
    RETURN_IF_FAILED(storedKey.Read(CCoseKey::kModulus, modulus));
    RETURN_IF_FAILED(storedKey.Read(CCoseKey::kExponent, exponent));
    const auto key = CPublicKey::FromRsa(modulus, exponent);
    if (!key.IsOk()) return ImportFailed(key.Error());
    const ErrorCode error = key.Value().VerifyRsa(SignatureHash::Sha256, hash, response.signature);
    return error == ErrorCode::Success ? CStatus() : SystemError(error, L"VerifySignature");
}

}  // namespace

CStatus VerifyAssertion(const CAssertionResponse& response, std::wstring_view userName,
                        std::string_view storedPublicKey, std::string_view expectedChallenge,
                        std::string_view relyingPartyHash) {
    CClientData clientData;
    RETURN_IF_FAILED(ParseClientData(response.clientDataJson, clientData));
    if (clientData.challenge != expectedChallenge)
        return MessageError(message::kChallengeMismatch, {userName});
    CAuthenticatorData data;
    RETURN_IF_FAILED(ParseAuthenticatorData(response.authenticatorData, data));
    if (data.relyingPartyHash != relyingPartyHash)
        return MessageError(message::kSignInForOtherSite, {userName});
    CCoseKey key;
    RETURN_IF_FAILED(CCoseKey::Parse(storedPublicKey, key));
    if (key.Algorithm() == CCoseKey::kEs256) return VerifyEs256(response, key);
    if (key.Algorithm() == CCoseKey::kRs256) return VerifyRs256(response, key);
    return SystemError(ErrorCode::InvalidParameter, L"Algorithm");
}

}  // namespace quorbel
