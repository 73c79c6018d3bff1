#include "components/oledb/ConnectionReset.h"

#include <mutex>
#include <new>

#include "components/oledb/ConnectionPool.h"
#include "platform/Thread.h"

namespace quorbel {

CConnectionReset::~CConnectionReset() {
    {
        const std::lock_guard guard(m_lock);
        m_isStopping = true;
        m_changed.notify_one();
    }
    if (m_thread.joinable()) m_thread.join();
}

void CConnectionReset::Take(Returned returned) noexcept {
    {
        const std::lock_guard guard(m_lock);
        if (HasThread()) {
            m_waiting.splice(m_waiting.end(), returned);
            m_changed.notify_one();
            return;
        }
    }
    for (CReturned& one : returned) Finish(one, false);
}

bool CConnectionReset::HasThread() noexcept try {
    if (m_thread.joinable()) return true;
    auto started = StartThread("ConnectionReset", [this] { Run(); });
    if (!started.IsOk()) return false;
    m_thread = std::move(started).Value();
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

void CConnectionReset::Run() noexcept {
    for (;;) {
        Returned next;
        bool isStopping = false;
        {
            std::unique_lock lock(m_lock);
            m_changed.wait(lock, [this] { return m_isStopping || !m_waiting.empty(); });
            if (m_waiting.empty()) return;
            next.splice(next.begin(), m_waiting, m_waiting.begin());
            isStopping = m_isStopping;
        }
        Finish(next.front(), isStopping);
    }
}

void CConnectionReset::Finish(CReturned& one, bool isStopping) noexcept {
    if (isStopping || !one.hasPlace) one.connection.reset();
    if (one.hasPlace) one.pool->GiveBack(std::move(one.connection), one.version);
}

}  // namespace quorbel
