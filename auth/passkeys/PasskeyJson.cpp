#include "auth/passkeys/PasskeyJson.h"

#include <nlohmann/json.hpp>

#include "platform/Text.h"
#include "platform/crypto/Base64.h"

namespace quorbel {

namespace {

using nlohmann::json;

CStatus BadMember(std::string_view name, std::source_location where = std::source_location::current()) {
    return SystemError(ErrorCode::InvalidData, FromUtf8(name), where);
}

const json* Find(const json& parent, const char* name) {
    const auto member = parent.find(name);
    return member == parent.end() ? nullptr : &*member;
}

CStatus FindObject(const json& parent, const char* name, const json*& object) {
    object = Find(parent, name);
    return object != nullptr && object->is_object() ? CStatus() : BadMember(name);
}

CStatus FindResponse(const json& body, const json*& response) {
    const json* credentials = nullptr;
    RETURN_IF_FAILED(FindObject(body, "credentials", credentials));
    return FindObject(*credentials, "response", response);
}

CStatus ReadText(const json& parent, const char* name, std::string& text) {
    const json* const member = Find(parent, name);
    if (member == nullptr || !member->is_string()) return BadMember(name);
    text = member->get_ref<const std::string&>();
    return {};
}

CStatus ReadBytes(const json& parent, const char* name, std::string& bytes) {
    std::string text;
    RETURN_IF_FAILED(ReadText(parent, name, text));
    auto decoded = FromBase64Url(text);
    if (!decoded) return BadMember(name);
    bytes = std::move(*decoded);
    return {};
}

json CredentialList(const std::vector<std::string>& credentialIds) {
    json list = json::array();
    for (const std::string& id : credentialIds)
        list.push_back({{"id", ToBase64Url(id)}, {"type", "public-key"}});
    return list;
}

}  // namespace

CStatus ReadRegistrationResponse(const json& body, CRegistrationResponse& response) {
    const json* members = nullptr;
    RETURN_IF_FAILED(FindResponse(body, members));
    RETURN_IF_FAILED(ReadBytes(*members, "authenticatorData", response.authenticatorData));
    RETURN_IF_FAILED(ReadBytes(*members, "clientDataJSON", response.clientDataJson));
    std::string publicKey;
    RETURN_IF_FAILED(ReadBytes(*members, "publicKey", publicKey));
    return ReadText(*members, "attestationObject", response.attestationObject);
}

CStatus ReadDisplayName(const json& body, std::optional<std::wstring>& displayName) {
    displayName.reset();
    if (!body.contains("user")) return {};
    const json* user = nullptr;
    RETURN_IF_FAILED(FindObject(body, "user", user));
    if (!user->contains("displayName")) return {};
    std::string text;
    RETURN_IF_FAILED(ReadText(*user, "displayName", text));
    displayName = FromUtf8(text);
    return {};
}

CStatus ReadCredentialId(const json& body, std::string& credentialId) {
    const json* credentials = nullptr;
    RETURN_IF_FAILED(FindObject(body, "credentials", credentials));
    return ReadBytes(*credentials, "id", credentialId);
}

CStatus ReadAssertionResponse(const json& body, CAssertionResponse& response) {
    const json* members = nullptr;
    RETURN_IF_FAILED(FindResponse(body, members));
    RETURN_IF_FAILED(ReadBytes(*members, "authenticatorData", response.authenticatorData));
    RETURN_IF_FAILED(ReadBytes(*members, "clientDataJSON", response.clientDataJson));
    return ReadBytes(*members, "signature", response.signature);
}

std::string CreationOptionsDocument(const CCreationOptions& options) {
    const auto parameter = [](int algorithm) { return json{{"alg", algorithm}, {"type", "public-key"}}; };
    json document{
        {"attestation", "direct"},
        {"attestationFormats", {"packed", "tpm"}},
        {"authenticatorSelection", {{"userVerification", "required"}}},
        {"challenge", ToBase64Url(options.challenge)},
        {"pubKeyCredParams", {parameter(-7), parameter(-257)}},
        {"rp", {{"id", ToUtf8(options.relyingPartyId)}}},
        {"user", {{"id", ToBase64Url(options.identity)}, {"name", ToUtf8(options.userName)}}},
    };
    if (!options.credentialIds.empty())
        document["excludeCredentials"] = CredentialList(options.credentialIds);
    if (options.relyingPartyName) document["rp"]["name"] = ToUtf8(*options.relyingPartyName);
    if (options.displayName) document["user"]["displayName"] = ToUtf8(*options.displayName);
    return document.dump();
}

std::string RequestOptionsDocument(const CRequestOptions& options) {
    const json document{
        {"allowCredentials", CredentialList(options.credentialIds)},
        {"challenge", ToBase64Url(options.challenge)},
        {"rpId", ToUtf8(options.relyingPartyId)},
        {"userVerification", "required"},
    };
    return document.dump();
}

std::string SignInDocument(const CSignInResult& result) {
    json ids = json::array();
    for (const std::string& id : result.credentialIds) ids.push_back(ToBase64Url(id));
    const json document{
        {"allAcceptedCredentialIds", std::move(ids)},
        {"displayName", ToUtf8(result.displayName)},
        {"name", ToUtf8(result.userName)},
        {"userId", ToBase64Url(result.identity)},
    };
    return document.dump();
}

}  // namespace quorbel
