#include "components/provider/ConnectionPool.h"

#include <algorithm>
#include <mutex>

#include "platform/Waiting.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

CPooledConnection::~CPooledConnection() {
    if (m_connection && !m_connection->Reset()) m_connection.reset();
    m_pool->GiveBack(std::move(m_connection), m_version);
}

HRESULT CPooledConnection::Renew() {
    if (m_connection->Reset()) return S_OK;
    m_connection.reset();
    m_version = m_pool->Database().Version();
    return m_pool->Database().Connect(m_connection);
}

HRESULT CConnectionPool::Take(std::unique_ptr<CPooledConnection>& connection) {
    // Seen before opening: a file that is replaced meanwhile is noticed the next time.
    const std::uint64_t version = m_database->Version();
    CIdle idle;
    Closing closing;
    const HRESULT placed = TakePlace(version, idle, closing);
    if (!Succeeded(placed)) return placed;
    closing.clear();
    if (!idle.connection || idle.version != version) {
        idle = {nullptr, version, {}};
        const HRESULT connected = m_database->Connect(idle.connection);
        if (!Succeeded(connected)) {
            GivePlace({});
            return connected;
        }
    }
    connection.reset(new CPooledConnection(shared_from_this(), std::move(idle.connection), idle.version));
    return S_OK;
}

HRESULT CConnectionPool::TakePlace(std::uint64_t version, CIdle& idle, Closing& closing) {
    CWaiter waiter;
    {
        const std::lock_guard guard(m_lock);
        DropStale(version, closing);
        if (m_waiting.empty() && m_taken < m_options.mostOpen) {
            ++m_taken;
            if (m_idle.empty()) return S_OK;
            idle = std::move(m_idle.back());
            m_idle.pop_back();
            return S_OK;
        }
        auto turn = CEvent::Create(EventReset::Manual);
        if (!turn.IsOk()) {
            SetErrorInfo(L"No connection can be waited for: the process has no descriptor left.");
            return E_OUTOFMEMORY;
        }
        waiter.turn = std::move(turn).Value();
        m_waiting.push_back(&waiter);
    }
    const HRESULT waited = WaitForPlace(waiter);
    idle = std::move(waiter.idle);
    return waited;
}

HRESULT CConnectionPool::WaitForPlace(CWaiter& waiter) {
    const std::shared_ptr<CEvent> abandoned = WorkAbandoned();
    const auto ended =
        abandoned ? WaitForAny({waiter.turn.get(), abandoned.get()}) : WaitForAny({waiter.turn.get()});
    {
        const std::lock_guard guard(m_lock);
        if (ended.IsOk() && ended.Value() == 0) return S_OK;
        if (!waiter.isServed) std::erase(m_waiting, &waiter);
    }
    if (waiter.isServed) GivePlace(std::move(waiter.idle));
    SetErrorInfo(L"Nobody waits for the result any more.");
    return DB_E_CANCELED;
}

void CConnectionPool::GivePlace(CIdle idle) {
    CIdle surplus;  // closed without the lock
    const std::lock_guard guard(m_lock);
    if (!m_waiting.empty()) {
        CWaiter& next = *m_waiting.front();
        m_waiting.pop_front();
        next.idle = std::move(idle);
        next.isServed = true;
        next.turn->Set();
        return;
    }
    --m_taken;
    if (!idle.connection) return;
    m_idle.push_back(std::move(idle));
    if (m_idle.size() <= m_options.mostIdle) return;
    surplus = std::move(m_idle.front());
    m_idle.erase(m_idle.begin());
}

void CConnectionPool::GiveBack(std::unique_ptr<ISqlConnection> connection, std::uint64_t version) {
    GivePlace({std::move(connection), version, m_clock.Steady()});
}

void CConnectionPool::DropStale(std::uint64_t version, Closing& closing) {
    const auto oldest = m_clock.Steady() - m_options.idleTime;
    const auto stale = std::ranges::stable_partition(
        m_idle, [&](const CIdle& idle) { return idle.version == version && idle.since >= oldest; });
    std::ranges::move(stale, std::back_inserter(closing));
    m_idle.erase(stale.begin(), stale.end());
}

}  // namespace quorbel
