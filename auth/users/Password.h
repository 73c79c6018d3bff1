#pragma once

#include <string>
#include <string_view>

#include "auth/users/PasswordHasher.h"
#include "platform/crypto/Secret.h"
#include "platform/registry/Key.h"

namespace quorbel {

enum class PasswordForm {
    None,   ///< no password: it never verifies
    Plain,  ///< to be hashed; until then it never verifies
    Hashed
};

enum class PasswordMatch {
    Right,
    Wrong,     ///< also when the hash cannot be made
    Abandoned  ///< nobody waits for the answer any more
};

/// A user's password. The registry value "Password" holds it plain (REG_SZ) or hashed: REG_BINARY, 56 bytes
/// of ASCII, 24 for the salt (Base64, RFC 4648 section 4) and 32 for the hash (upper-case hexadecimal). What
/// it keeps is wiped from memory at its end. Copies cost a few dozen bytes each. Text is hashed as UTF-8.
class CPassword {
 public:
    CPassword() = default;
    /// A plain password, to be hashed with SetPassword.
    explicit CPassword(std::wstring_view plain);
    CPassword(const CPassword&) = default;
    CPassword(CPassword&& other) noexcept;
    CPassword& operator=(const CPassword&) = default;
    CPassword& operator=(CPassword&& other) noexcept;

    /// The same in the same form, salt included.
    friend bool operator==(const CPassword& left, const CPassword& right) noexcept {
        return left.m_form == right.m_form && left.m_salt == right.m_salt &&
               left.m_hashText.Get() == right.m_hashText.Get() && left.m_plain.Get() == right.m_plain.Get();
    }

    PasswordForm Form() const noexcept { return m_form; }

    /// Takes the password out of a user's key; a plain one is not hashed yet. FileNotFound when there is
    /// none, InvalidData when it has another type or is malformed. After a failure this has no password.
    ErrorCode Read(const IKey& user);
    /// Hashes the plain password with a new random salt and forgets the plain text. Nothing has happened
    /// after a failure. InvalidParameter when this is no plain password.
    ErrorCode SetPassword(IPasswordHasher& hasher);
    /// Stores the hashed password. InvalidParameter when this is none.
    ErrorCode Write(IKey& user) const;

    /// Compares in a time that tells nothing about where they differ. Costs a hash, also when there is no
    /// password to compare with: for users that do not exist, let a default-constructed password answer.
    PasswordMatch Verify(std::wstring_view candidate, IPasswordHasher& hasher) const;

 private:
    ErrorCode ReadPlain(std::string_view data);
    ErrorCode ReadHashed(std::string_view data);

    PasswordForm m_form = PasswordForm::None;
    CSecretBytes m_plain;     ///< UTF-8
    CSecretBytes m_hashText;  ///< as stored, of any length
    PasswordSalt m_salt{};
};

}  // namespace quorbel
