#pragma once

#include <functional>
#include <optional>

#include "LibService/Status.h"
#include "auth/UserTable.h"
#include "auth/users/PasswordHasher.h"
#include "config/RegistryKey.h"
#include "platform/crypto/KeyStorage.h"

namespace quorbel {

/// Where users come from, and what their entries need to be understood.
struct CUserSource {
    IRegistry& registry;
    const CRegistryKey& users;  ///< one subkey a user
    IPasswordHasher& hasher;
    IKeyStorageProvider& keys;
};

/// Plain passwords that were hashed already, by user: the value as it was read, and its hash.
using HashedPasswords = std::map<std::wstring, std::pair<CPassword, CPassword>>;

/// Reads all users as they are at one moment, then hashes plain passwords and gives an identity to those who
/// have none. Each broken entry is a failure of the whole. `isStopped` is asked between two users; when it
/// says so there is no table and no failure. `hashed` spares a load that has to be run again the hashes that
/// it has made.
CStatus LoadUserTable(const CUserSource& source, const std::function<bool()>& isStopped,
                      HashedPasswords& hashed, std::optional<CUserTable>& table);

}  // namespace quorbel
