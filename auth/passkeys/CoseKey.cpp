#include "auth/passkeys/CoseKey.h"

namespace quorbel {

namespace {

constexpr std::int64_t kAlgorithmLabel = 3;

}  // namespace

CStatus CCoseKey::Parse(std::string_view bytes, CCoseKey& key) {
    std::size_t used = 0;
    const auto item = CCborItem::Decode(bytes, used);
    auto parameters = item ? item->MapOfIntegers() : std::nullopt;
    if (!parameters) return SystemError(ErrorCode::InvalidData, L"PublicKey");
    const auto member = parameters->find(kAlgorithmLabel);
    const auto algorithm = member != parameters->end() ? member->second.Integer() : std::nullopt;
    if (!algorithm) return SystemError(ErrorCode::InvalidData, std::to_wstring(kAlgorithmLabel));
    key.m_algorithm = *algorithm;
    key.m_parameters = std::move(*parameters);
    return {};
}

CStatus CCoseKey::Read(std::int64_t label, std::string& bytes) const {
    const auto member = m_parameters.find(label);
    auto content = member != m_parameters.end() ? member->second.Bytes() : std::nullopt;
    if (!content) return SystemError(ErrorCode::InvalidData, std::to_wstring(label));
    bytes = std::move(*content);
    return {};
}

}  // namespace quorbel
