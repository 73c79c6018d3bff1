#include "auth/passkeys/ClientData.h"

#include <nlohmann/json.hpp>

#include "auth/passkeys/Json.h"
#include "platform/crypto/Base64.h"

namespace quorbel {

CStatus ParseClientData(std::string_view json, CClientData& data) {
    nlohmann::json document;
    if (!ParseJson(json, document) || !document.is_object())
        return SystemError(ErrorCode::InvalidData, L"clientDataJSON");
    const auto challenge = document.find("challenge");
    if (challenge == document.end() || !challenge->is_string())
        return SystemError(ErrorCode::InvalidData, L"challenge");
    auto bytes = FromBase64Url(challenge->get_ref<const std::string&>());
    if (!bytes) return SystemError(ErrorCode::InvalidData, L"challenge");
    data.challenge = std::move(*bytes);
    return {};
}

}  // namespace quorbel
