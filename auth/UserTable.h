#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>

#include "auth/users/Password.h"
#include "http/RequestHandler.h"

namespace quorbel {

/// A user who may sign in. Credential IDs and public keys are bytes.
struct CUser {
    CPassword password;
    std::string identity;  ///< the passkey user handle and the seed of challenges; normally 16 random bytes
    std::wstring displayName;
    std::map<std::string, std::string> credentials;  ///< credential ID to COSE public key
    std::int64_t challengeTime = 0;  ///< steady clock, ns, of the pending challenge; 0 when none is pending
    std::string cookie;              ///< the long-lived token; empty when there is none
    bool isAdministrator = false;
};

/// Lets an unordered map of texts be asked with a view.
struct CTokenHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view token) const noexcept {
        return std::hash<std::string_view>{}(token);
    }
};

/// All users and the ways to find them.
struct CUserTable {
    using Users = std::map<UserIdentity, CUser>;
    using CookieIndex =
        std::unordered_map<std::string, const Users::value_type*, CTokenHash, std::equal_to<>>;

    Users users;
    std::map<std::string, UserIdentity> credentialIndex;  ///< credential ID to user
    CookieIndex cookieIndex;                              ///< long-lived token to user
};

}  // namespace quorbel
