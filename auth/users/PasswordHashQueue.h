#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <thread>
#include <vector>

#include "auth/users/PasswordHasher.h"
#include "platform/Lock.h"

namespace quorbel {

/// Bounds how many hashes are made at a time, whoever asks: the others wait for their turn in the order in
/// which they came. Hashes are made on threads of the queue's own that give way to all others of the process;
/// they start when they are first needed and end with the queue, which must outlive every call.
///
/// Hash waits, so it must be called without a lock. A caller whose work is abandoned meanwhile
/// (WorkAbandoned) gives up its turn and gets OperationAborted; a hash that is being made already is made to
/// its end.
class CPasswordHashQueue final : public IPasswordHasher {
 public:
    /// `mostAtOnce` is at least 1.
    CPasswordHashQueue(std::shared_ptr<IPasswordHasher> hasher, std::size_t mostAtOnce);
    /// Argon2, as many at a time as there are processors.
    CPasswordHashQueue();
    ~CPasswordHashQueue() override;
    CPasswordHashQueue(const CPasswordHashQueue&) = delete;
    CPasswordHashQueue& operator=(const CPasswordHashQueue&) = delete;

    CResult<PasswordHash> Hash(std::string_view password, const PasswordSalt& salt) override;

 private:
    struct CTurn;
    ErrorCode Enqueue(const std::shared_ptr<CTurn>& turn);
    ErrorCode StartWorkerIfNeeded();
    std::shared_ptr<CTurn> NextTurn();
    void Work();

    const std::shared_ptr<IPasswordHasher> m_hasher;
    const std::size_t m_mostAtOnce;

    CMutex m_lock{LockRank::Innermost};
    std::condition_variable_any m_changed;
    /// Guarded by m_lock.
    /// @{
    std::deque<std::shared_ptr<CTurn>> m_waiting;
    std::vector<std::thread> m_workers;
    std::size_t m_idle = 0;
    bool m_isEnding = false;
    /// @}
};

}  // namespace quorbel
