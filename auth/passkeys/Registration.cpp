#include "auth/passkeys/Registration.h"

#include "LibService/MessageIds.h"
#include "auth/passkeys/AttestationObject.h"
#include "auth/passkeys/AuthenticatorData.h"
#include "auth/passkeys/SignedHash.h"
#include "platform/Text.h"
#include "platform/crypto/Base64.h"
#include "platform/crypto/Digest.h"

namespace quorbel {

namespace {

// Where a TPM 2.0 attestation structure holds its extra data and the digest of the certified name, when the
// signer's qualified name takes 34 bytes and the extra data 20.
constexpr std::size_t kExtraDataOffset = 44;
constexpr std::size_t kNameDigestOffset = 93;
constexpr std::size_t kSha1Bytes = 20;
constexpr std::size_t kSha256Bytes = 32;

// Algorithms of statements (IANA COSE registry).
constexpr std::int32_t kEs256 = -7;
constexpr std::int32_t kRs1 = -65535;

constexpr std::uint8_t kNeededFlags = CAuthenticatorData::kUserPresent | CAuthenticatorData::kUserVerified;

bool HoldsAt(std::string_view bytes, std::size_t offset, std::string_view part) {
    return offset <= bytes.size() && bytes.substr(offset).starts_with(part);
}

/// One registration on its way through the checks.
class CAttestationCheck {
 public:
    CAttestationCheck(const CRegistrationResponse& response, std::wstring_view userName)
        : m_response(response), m_userName(userName) {}

    CStatus Run(std::string_view relyingPartyHash);
    CVerifiedCredential Credential() && {
        return {std::move(m_data.aaguid), std::move(m_data.credentialId), std::move(m_data.publicKey)};
    }

 private:
    CStatus ReadObject();
    CStatus ImportCertificates();
    CStatus CheckData(std::string_view relyingPartyHash) const;
    CStatus CheckStatement() const;
    CStatus GetPackedHash(std::string& hash) const;
    CStatus GetTpmHash(std::string& hash) const;
    CStatus CheckTpmExtraData() const;
    CStatus CheckTpmName() const;
    CStatus CheckSignature(std::string_view hash) const;
    CStatus CheckEcdsa(std::string_view hash) const;
    CStatus CheckCredential() const;

    CStatus CheckFailed(std::wstring_view check,
                        std::source_location where = std::source_location::current()) const {
        return MessageError(message::kAttestationCheckFailed, {m_userName, check}, where);
    }

    const CRegistrationResponse& m_response;
    const std::wstring_view m_userName;
    CAttestationObject m_object;
    CAuthenticatorData m_data;
    std::optional<CPublicKey> m_key;  ///< the first certificate's
};

CStatus CAttestationCheck::ReadObject() {
    const auto bytes = FromBase64Url(m_response.attestationObject);
    if (!bytes) return SystemError(ErrorCode::InvalidData, L"attestationObject");
    return ParseAttestationObject(*bytes, m_object);
}

CStatus CAttestationCheck::ImportCertificates() {
    for (const std::string& certificate : m_object.certificates) {
        auto key = CPublicKey::FromCertificate(certificate);
        RETURN_IF_SYSTEM_ERROR(key.Error());
        if (!m_key) m_key = std::move(key.Value());
    }
    return {};
}

CStatus CAttestationCheck::CheckData(std::string_view relyingPartyHash) const {
    if (m_data.relyingPartyHash != relyingPartyHash)
        return MessageError(message::kRegistrationForOtherSite, {m_userName});
    if ((m_data.flags & kNeededFlags) != kNeededFlags)
        return MessageError(message::kUserNotVerified, {m_userName, ToHex(m_data.flags, 2)});
    return {};
}

CStatus CAttestationCheck::GetPackedHash(std::string& hash) const {
    hash = GetSignedHash(SignatureHash::Sha256, m_response.clientDataJson, m_response.authenticatorData);
    return hash.empty() ? SystemError(ErrorCode::CryptographyFailed, L"GetSignedHash") : CStatus();
}

CStatus CAttestationCheck::CheckTpmExtraData() const {
    const std::string hash =
        GetSignedHash(SignatureHash::Sha1, m_response.clientDataJson, m_response.authenticatorData);
    if (hash.empty()) return SystemError(ErrorCode::CryptographyFailed, L"GetSignedHash");
    if (hash.size() != kSha1Bytes) return CheckFailed(L"attestation data hash size incorrect");
    if (!HoldsAt(m_object.certifiedInfo, kExtraDataOffset, hash))
        return CheckFailed(L"attestation data hash miscompare");
    return {};
}

CStatus CAttestationCheck::CheckTpmName() const {
    const std::string hash = Sha256({m_object.publicArea});
    if (hash.empty()) return SystemError(ErrorCode::CryptographyFailed, L"SHA256");
    if (hash.size() != kSha256Bytes) return CheckFailed(L"attestation name hash size incorrect");
    if (!HoldsAt(m_object.certifiedInfo, kNameDigestOffset, hash))
        return CheckFailed(L"attestation name hash miscompare");
    return {};
}

CStatus CAttestationCheck::GetTpmHash(std::string& hash) const {
    RETURN_IF_FAILED(CheckTpmExtraData());
    RETURN_IF_FAILED(CheckTpmName());
    hash = Sha1({m_object.certifiedInfo});
    return hash.empty() ? SystemError(ErrorCode::CryptographyFailed) : CStatus();
}

CStatus CAttestationCheck::CheckEcdsa(std::string_view hash) const {
    const std::string signature = ConvertASN1ToRaw(m_object.signature);
    if (signature.empty()) return SystemError(ErrorCode::BadData, L"ConvertASN1ToRaw");
    const ErrorCode error = m_key->VerifyEcdsa(hash, signature);
    return error == ErrorCode::Success ? CStatus() : SystemError(error, L"VerifySignature");
}

CStatus CAttestationCheck::CheckSignature(std::string_view hash) const {
    const std::int32_t algorithm = m_object.algorithm.value_or(kEs256);
    if (algorithm == kEs256) return CheckEcdsa(hash);
    if (algorithm != kRs1)
        return SystemError(ErrorCode::InvalidParameter, ToHex(static_cast<std::uint32_t>(algorithm), 8));
    const ErrorCode error = m_key->VerifyRsa(SignatureHash::Sha1, hash, m_object.signature);
    return error == ErrorCode::Success ? CStatus() : SystemError(error, L"VerifySignature");
}

CStatus CAttestationCheck::CheckStatement() const {
    if (m_object.format == L"none") return {};
    if (!m_key) return MessageError(message::kAttestationWithoutCertificate, {m_userName});
    std::string hash;
    if (m_object.format == L"packed") {
        RETURN_IF_FAILED(GetPackedHash(hash));
    } else if (m_object.format == L"tpm") {
        RETURN_IF_FAILED(GetTpmHash(hash));
    } else {
        return MessageError(message::kAttestationFormatUnsupported, {m_userName, m_object.format});
    }
    return CheckSignature(hash);
}

CStatus CAttestationCheck::CheckCredential() const {
    // What was signed is what the page sent; what was read is what the object holds.
    if (m_response.authenticatorData != m_object.authenticatorData)
        return SystemError(ErrorCode::InvalidData, L"authenticatorData");
    if (m_data.credentialId.empty() || m_data.publicKey.empty())
        return SystemError(ErrorCode::InvalidData, L"authData");
    return {};
}

CStatus CAttestationCheck::Run(std::string_view relyingPartyHash) {
    RETURN_IF_FAILED(ReadObject());
    RETURN_IF_FAILED(ImportCertificates());
    RETURN_IF_FAILED(ParseAuthenticatorData(m_object.authenticatorData, m_data));
    RETURN_IF_FAILED(CheckData(relyingPartyHash));
    RETURN_IF_FAILED(CheckStatement());
    return CheckCredential();
}

}  // namespace

CStatus VerifyAttestation(const CRegistrationResponse& response, std::string_view relyingPartyHash,
                          std::wstring_view userName, CVerifiedCredential& credential) {
    CAttestationCheck check(response, userName);
    RETURN_IF_FAILED(check.Run(relyingPartyHash));
    credential = std::move(check).Credential();
    return {};
}

}  // namespace quorbel
