#pragma once

#include <sstream>
#include <string>

#include "LibService/MessageIds.h"
#include "LibService/Status.h"
#include "platform/Text.h"

namespace quorbel {

/// A check's outcome on one line: "ok", "C0000A93: ann, 41" for a message and its insertion strings, or
/// "error 13: challenge" for a system error and its extra text (numbers above 65,535 in hexadecimal). A
/// message has insertion strings only while the message module is loaded.
inline std::string Outcome(const CStatus& status) {
    if (status.IsOk()) return "ok";
    const CError& error = *status.Error();
    const bool isMessage = dynamic_cast<const CErrorMessage*>(&error) != nullptr;
    std::ostringstream text;
    if (isMessage) {
        text << std::uppercase << std::hex << error.GetMessageId();
    } else {
        text << "error " << std::uppercase << (error.GetCode() > 0xFFFF ? std::hex : std::dec)
             << error.GetCode();
    }
    const char* separator = ": ";
    for (std::size_t i = isMessage ? 0 : 2; i < error.GetInsertCount(); ++i) {
        text << separator << ToUtf8(error.GetInsert(i));
        separator = ", ";
    }
    return text.str();
}

/// What a cryptographic step gives for a key, for data and for a signature that is not good.
inline constexpr char kBadImport[] = "error 80090003: ImportKeyPair";
inline constexpr char kBadCertificateKey[] = "error 80090003";
inline constexpr char kBadCertificate[] = "error 80090005";
inline constexpr char kBadConversion[] = "error 80090005: ConvertASN1ToRaw";
inline constexpr char kBadSignature[] = "error 80090006: VerifySignature";
inline constexpr char kWrongKeyKind[] = "error 80090003: VerifySignature";

/// The bytes of an even number of hexadecimal digits.
inline std::string Unhex(std::string_view digits) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(HexDigit(digits[i]) * 16 + HexDigit(digits[i + 1]));
    return bytes;
}

inline std::string WithBitFlipped(std::string bytes, std::size_t bit) {
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ 1 << bit % 8);
    return bytes;
}

}  // namespace quorbel
