#pragma once

#include <algorithm>
#include <atomic>

#include "auth/users/PasswordHasher.h"
#include "platform/crypto/Digest.h"

namespace quorbel {

/// A hasher that takes no time, counts its hashes and fails on demand.
class CQuickHasher final : public IPasswordHasher {
 public:
    CResult<PasswordHash> Hash(std::string_view password, const PasswordSalt& salt) override {
        ++m_hashes;
        const ErrorCode failure = m_failure.load();
        if (failure != ErrorCode::Success) return failure;
        PasswordHash hash;
        const auto digest = Sha256({{reinterpret_cast<const char*>(salt.data()), salt.size()}, password});
        std::copy_n(digest.begin(), hash.size(), hash.begin());
        return hash;
    }
    void Fail(ErrorCode error) { m_failure.store(error); }
    int Hashes() const { return m_hashes; }

 private:
    std::atomic<int> m_hashes{0};
    std::atomic<ErrorCode> m_failure{ErrorCode::Success};
};

}  // namespace quorbel
