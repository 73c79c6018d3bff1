#pragma once

#include <cstdint>

namespace quorbel {

/// Identifiers of the event message table (messages/EvtQBHTTPService.mc has their texts). Bits 31-30 are the
/// severity: 0 success, 1 informational, 2 warning, 3 error; bits 15-0 the message number.
namespace message {
inline constexpr std::uint32_t kServiceStarted = 0x00000001;          ///< display name
inline constexpr std::uint32_t kServiceStopping = 0x00000002;         ///< display name
inline constexpr std::uint32_t kSystemError = 0xC0000064;             ///< number or HRESULT; system text
inline constexpr std::uint32_t kAllocationFailed = 0xC0000065;        ///< size in bytes
inline constexpr std::uint32_t kUnhandledFault = 0xC0000067;          ///< fault text
inline constexpr std::uint32_t kCaughtException = 0xC0000068;         ///< exception's text
inline constexpr std::uint32_t kUnknownObjectKey = 0xC0000069;        ///< "COOKIE"
inline constexpr std::uint32_t kSystemErrorWithText = 0xC000006A;     ///< number; system text; extra text
inline constexpr std::uint32_t kFolderUnavailable = 0xC00000C9;       ///< folder; host name
inline constexpr std::uint32_t kLocationWithoutHandler = 0xC00000CB;  ///< location path
inline constexpr std::uint32_t kUnknownHandler = 0xC00000CC;          ///< location path; handler name
inline constexpr std::uint32_t kStandardException = 0xC000012C;       ///< exception's text
inline constexpr std::uint32_t kNotFound = 0xC00007D0;                ///< host name; request path
inline constexpr std::uint32_t kConfigurationMissing = 0xC00100CE;    ///< none

// Queries.
inline constexpr std::uint32_t kDataSourceUnavailable = 0xC00009C4;  ///< initialisation string; reason
inline constexpr std::uint32_t kCommandFailed = 0xC00009C5;          ///< command; reason; query file

// Searches.
inline constexpr std::uint32_t kSearchUnavailable = 0xC0000A28;         ///< reason
inline constexpr std::uint32_t kSearchHelperUnavailable = 0xC0000A29;   ///< reason
inline constexpr std::uint32_t kSearchSourceUnavailable = 0xC0000A2A;   ///< connection string; reason
inline constexpr std::uint32_t kSearchDescriptionRefused = 0xC0000A2B;  ///< reason; description file
inline constexpr std::uint32_t kSearchFailed = 0xC0000A2C;              ///< command; reason; description file
inline constexpr std::uint32_t kSearchIndexStale = 0xC0000A2D;          ///< reason

// Passkeys.
inline constexpr std::uint32_t kAuthenticatorDataMalformed = 0xC0000A8C;     ///< what is wrong with it
inline constexpr std::uint32_t kPasskeyUserGone = 0xC0000A8D;                ///< user
inline constexpr std::uint32_t kCredentialUnknown = 0xC0000A8E;              ///< credential ID
inline constexpr std::uint32_t kCredentialNotOfUser = 0xC0000A8F;            ///< user
inline constexpr std::uint32_t kChallengeExpired = 0xC0000A90;               ///< user
inline constexpr std::uint32_t kChallengeUnknown = 0xC0000A91;               ///< none
inline constexpr std::uint32_t kRegistrationForOtherSite = 0xC0000A92;       ///< user
inline constexpr std::uint32_t kUserNotVerified = 0xC0000A93;                ///< user; flags
inline constexpr std::uint32_t kAttestationFormatUnsupported = 0xC0000A94;   ///< user; format
inline constexpr std::uint32_t kAttestationWithoutCertificate = 0xC0000A95;  ///< user
inline constexpr std::uint32_t kAttestationCheckFailed = 0xC0000A96;         ///< user; check
inline constexpr std::uint32_t kChallengeMissing = 0xC0000A97;               ///< user
inline constexpr std::uint32_t kChallengeMismatch = 0xC0000A98;              ///< user
inline constexpr std::uint32_t kSignInForOtherSite = 0xC0000A99;             ///< user
}  // namespace message

/// Identifiers of trace records (messages/TrcQBHTTPService.mc has their texts). As above, with a category in
/// bits 19-16, each bit one category.
namespace trace {
inline constexpr std::uint32_t kServiceStart = 0x00010000;
inline constexpr std::uint32_t kRunRoutine = 0x00010001;
inline constexpr std::uint32_t kServiceStop = 0x00010002;
inline constexpr std::uint32_t kMainThreadFailed = 0xC0010001;
inline constexpr std::uint32_t kListenerOpened = 0x000100C8;  ///< URL
inline constexpr std::uint32_t kListenerFailed = 0xC00100C9;  ///< URL, or the error's text
inline constexpr std::uint32_t kListenersStopped = 0x000100CA;
inline constexpr std::uint32_t kRequest = 0x000100CC;        ///< request line and headers
inline constexpr std::uint32_t kMethodRefused = 0xC00100CF;  ///< method; decoded path
}  // namespace trace

}  // namespace quorbel
