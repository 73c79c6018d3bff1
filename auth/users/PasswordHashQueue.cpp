#include "auth/users/PasswordHashQueue.h"

#include <algorithm>
#include <cassert>

#include "auth/users/Argon2.h"
#include "platform/Event.h"
#include "platform/Processors.h"
#include "platform/Thread.h"
#include "platform/Waiting.h"
#include "platform/crypto/Secret.h"

namespace quorbel {

/// One call's place in the queue. Whoever took it out of the queue works on it; then it is the caller's
/// again.
struct CPasswordHashQueue::CTurn {
    CSecretBytes password;
    PasswordSalt salt;
    std::shared_ptr<CEvent> done;
    CResult<PasswordHash> result = ErrorCode::OperationAborted;  ///< guarded by the queue's lock
};

CPasswordHashQueue::CPasswordHashQueue(std::shared_ptr<IPasswordHasher> hasher, std::size_t mostAtOnce)
    : m_hasher(std::move(hasher)), m_mostAtOnce(mostAtOnce) {
    assert(mostAtOnce > 0);
}

CPasswordHashQueue::CPasswordHashQueue()
    : CPasswordHashQueue(std::make_shared<CArgon2>(), UsableProcessors()) {}

CPasswordHashQueue::~CPasswordHashQueue() {
    {
        const std::lock_guard lock(m_lock);
        m_isEnding = true;
    }
    m_changed.notify_all();
    for (std::thread& worker : m_workers) worker.join();
}

CResult<PasswordHash> CPasswordHashQueue::Hash(std::string_view password, const PasswordSalt& salt) {
    auto done = CEvent::Create(EventReset::Manual);
    if (!done.IsOk()) return done.Error();
    const auto turn = std::make_shared<CTurn>(CTurn{CSecretBytes(password), salt, std::move(done).Value()});
    if (const ErrorCode error = Enqueue(turn); error != ErrorCode::Success) return error;
    const std::shared_ptr<CEvent> abandoned = WorkAbandoned();
    const auto ended = abandoned ? WaitForAny({turn->done.get(), abandoned.get()})  //
                                 : WaitForAny({turn->done.get()});
    const std::lock_guard lock(m_lock);
    std::erase(m_waiting, turn);
    return ended.IsOk() ? turn->result : ended.Error();
}

ErrorCode CPasswordHashQueue::Enqueue(const std::shared_ptr<CTurn>& turn) {
    {
        const std::lock_guard lock(m_lock);
        m_waiting.push_back(turn);
        const ErrorCode error = StartWorkerIfNeeded();
        if (error != ErrorCode::Success) {
            m_waiting.pop_back();
            return error;
        }
    }
    m_changed.notify_one();
    return ErrorCode::Success;
}

/// Called with the lock held. Without a further thread the present ones do the work.
ErrorCode CPasswordHashQueue::StartWorkerIfNeeded() {
    if (m_waiting.size() <= m_idle || m_workers.size() >= m_mostAtOnce) return ErrorCode::Success;
    auto worker = StartThread("PasswordHash", [this] { Work(); });
    if (worker.IsOk()) m_workers.push_back(std::move(worker).Value());
    return m_workers.empty() ? ErrorCode::NoServiceThread : ErrorCode::Success;
}

/// Waits for the next turn and takes it out of the queue; null at the end.
std::shared_ptr<CPasswordHashQueue::CTurn> CPasswordHashQueue::NextTurn() {
    std::unique_lock lock(m_lock);
    ++m_idle;
    m_changed.wait(lock, [this] { return m_isEnding || !m_waiting.empty(); });
    --m_idle;
    if (m_isEnding) return nullptr;
    auto turn = std::move(m_waiting.front());
    m_waiting.pop_front();
    return turn;
}

void CPasswordHashQueue::Work() {
    GiveWayToOtherThreads();
    while (const auto turn = NextTurn()) {
        const auto result = m_hasher->Hash(turn->password.Get(), turn->salt);
        turn->password = CSecretBytes();
        {
            const std::lock_guard lock(m_lock);
            turn->result = result;
        }
        turn->done->Set();
    }
}

}  // namespace quorbel
