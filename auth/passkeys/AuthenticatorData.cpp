#include "auth/passkeys/AuthenticatorData.h"

#include "LibService/MessageIds.h"

namespace quorbel {

namespace {

constexpr std::size_t kHashBytes = 32;
constexpr std::size_t kHeadBytes = 37;  // hash, flags, counter
constexpr std::size_t kAaguidBytes = 16;
constexpr std::size_t kCredentialHeadBytes = 18;  // AAGUID, length of the credential ID

std::uint8_t ByteAt(std::string_view bytes, std::size_t offset) {
    return static_cast<std::uint8_t>(bytes[offset]);
}

CStatus ParseCredential(std::string_view bytes, CAuthenticatorData& data) {
    if (bytes.size() < kCredentialHeadBytes)
        return MessageError(message::kAuthenticatorDataMalformed,
                            {L"Not enough data for attested credential header."});
    const std::size_t length = ByteAt(bytes, kAaguidBytes) * 256U + ByteAt(bytes, kAaguidBytes + 1);
    data.aaguid = bytes.substr(0, kAaguidBytes);
    bytes.remove_prefix(kCredentialHeadBytes);
    if (bytes.size() < length)
        return MessageError(message::kAuthenticatorDataMalformed, {L"Not enough data for Credential ID."});
    data.credentialId = bytes.substr(0, length);
    data.publicKey = bytes.substr(length);
    return {};
}

}  // namespace

CStatus ParseAuthenticatorData(std::string_view bytes, CAuthenticatorData& data) {
    if (bytes.size() < kHeadBytes)
        return MessageError(message::kAuthenticatorDataMalformed, {L"Data too short to be valid authData."});
    data = {};
    data.relyingPartyHash = bytes.substr(0, kHashBytes);
    data.flags = ByteAt(bytes, kHashBytes);
    if ((data.flags & CAuthenticatorData::kAttestedCredential) == 0) return {};
    return ParseCredential(bytes.substr(kHeadBytes), data);
}

}  // namespace quorbel
