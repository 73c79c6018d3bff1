#include "auth/passkeys/AttestationObject.h"

#include <limits>

#include "auth/passkeys/Cbor.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

CStatus BadEntry(std::string_view name, std::source_location where = std::source_location::current()) {
    return SystemError(ErrorCode::InvalidData, FromUtf8(name), where);
}

const CCborItem* Find(const CCborItem::TextMap& map, std::string_view name) {
    const auto member = map.find(name);
    return member == map.end() ? nullptr : &member->second;
}

CStatus ReadBytes(const CCborItem::TextMap& map, std::string_view name, std::string& bytes) {
    const CCborItem* const member = Find(map, name);
    auto content = member != nullptr ? member->Bytes() : std::nullopt;
    if (!content) return BadEntry(name);
    bytes = std::move(*content);
    return {};
}

CStatus ReadOptionalBytes(const CCborItem::TextMap& map, std::string_view name, std::string& bytes) {
    return map.contains(name) ? ReadBytes(map, name, bytes) : CStatus();
}

CStatus ReadAlgorithm(const CCborItem::TextMap& statement, CAttestationObject& object) {
    using Limits = std::numeric_limits<std::int32_t>;
    const CCborItem* const member = Find(statement, "alg");
    if (member == nullptr) return {};
    const auto number = member->Integer();
    if (!number || *number < Limits::min() || *number > Limits::max()) return BadEntry("alg");
    object.algorithm = static_cast<std::int32_t>(*number);
    return {};
}

CStatus ReadCertificates(const CCborItem::TextMap& statement, CAttestationObject& object) {
    const CCborItem* const member = Find(statement, "x5c");
    if (member == nullptr) return {};
    const auto certificates = member->Array();
    if (!certificates) return BadEntry("x5c");
    for (const CCborItem& certificate : *certificates) {
        auto der = certificate.Bytes();
        if (!der) return BadEntry("x5c");
        object.certificates.push_back(std::move(*der));
    }
    return {};
}

CStatus ReadStatement(const CCborItem::TextMap& statement, CAttestationObject& object) {
    RETURN_IF_FAILED(ReadAlgorithm(statement, object));
    RETURN_IF_FAILED(ReadOptionalBytes(statement, "sig", object.signature));
    RETURN_IF_FAILED(ReadCertificates(statement, object));
    RETURN_IF_FAILED(ReadOptionalBytes(statement, "certInfo", object.certifiedInfo));
    return ReadOptionalBytes(statement, "pubArea", object.publicArea);
}

}  // namespace

CStatus ParseAttestationObject(std::string_view bytes, CAttestationObject& object) {
    std::size_t used = 0;
    const auto item = CCborItem::Decode(bytes, used);
    const auto members = item && used == bytes.size() ? item->MapOfTexts() : std::nullopt;
    if (!members) return BadEntry("attestationObject");
    object = {};
    const CCborItem* const format = Find(*members, "fmt");
    const auto formatName = format != nullptr ? format->Text() : std::nullopt;
    if (!formatName) return BadEntry("fmt");
    object.format = FromUtf8(*formatName);
    const CCborItem* const statement = Find(*members, "attStmt");
    const auto statementMembers = statement != nullptr ? statement->MapOfTexts() : std::nullopt;
    if (!statementMembers) return BadEntry("attStmt");
    RETURN_IF_FAILED(ReadStatement(*statementMembers, object));
    return ReadBytes(*members, "authData", object.authenticatorData);
}

}  // namespace quorbel
