#include "components/oledb/ConnectionPool.h"

#include <algorithm>
#include <mutex>

#include "platform/Waiting.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

HRESULT Refuse(ErrorCode error, std::wstring_view why) {
    SetErrorInfo(std::wstring(why));
    return HResultFromWin32(ToNumber(error));
}

}  // namespace

CPooledConnection::~CPooledConnection() {
    if (!Own().hasPlace) return;
    if (m_reset && Own().connection) {
        m_reset->Take(std::move(m_own));
    } else {
        Own().pool->GiveBack(std::move(Own().connection), Own().version);
    }
}

HRESULT CPooledConnection::Renew() {
    if (Own().connection && Own().connection->Reset()) return S_OK;
    Own().connection.reset();
    Own().version = Own().pool->Database().Version();
    return Own().pool->Database().Open(Own().connection);
}

HRESULT CConnectionPool::Take(std::unique_ptr<CPooledConnection>& connection) {
    // Seen before opening: a file that is replaced meanwhile is noticed the next time.
    const std::uint64_t version = m_database->Version();
    // Made first: it gives the place back whatever fails.
    std::unique_ptr<CPooledConnection> taken(new CPooledConnection(shared_from_this(), Reset()));
    CIdle idle;
    Closing closing;
    const HRESULT placed = TakePlace(version, idle, closing);
    if (!Succeeded(placed)) return placed;
    taken->Own().hasPlace = true;
    taken->Own().version = version;
    if (taken->m_reset) Close(std::move(closing), *taken->m_reset);
    closing.clear();
    if (idle.connection && idle.version == version) {
        taken->Own().connection = std::move(idle.connection);
    } else {
        idle.connection.reset();
        const HRESULT connected = m_database->Open(taken->Own().connection);
        if (!Succeeded(connected)) return connected;
    }
    connection = std::move(taken);
    return S_OK;
}

void CConnectionPool::Close(Closing closing, CConnectionReset& reset) {
    if (closing.empty()) return;
    CConnectionReset::Returned returned;
    for (CIdle& idle : closing) returned.emplace_back().connection = std::move(idle.connection);
    reset.Take(std::move(returned));
}

HRESULT CConnectionPool::TakePlace(std::uint64_t version, CIdle& idle, Closing& closing) {
    {
        const std::lock_guard guard(m_lock);
        DropStale(version, closing);
        if (TakeFreePlace(idle)) return S_OK;
    }
    auto turn = CEvent::Create(EventReset::Manual);
    if (!turn.IsOk()) {
        SetErrorInfo(L"No connection can be waited for: the process has no descriptor left.");
        return E_OUTOFMEMORY;
    }
    CWaiter waiter;
    waiter.turn = std::move(turn).Value();
    // Asked for now: nothing may fail for want of memory once others know of the waiter.
    const std::shared_ptr<CEvent> abandoned = WorkAbandoned();
    {
        const std::lock_guard guard(m_lock);
        if (TakeFreePlace(idle)) return S_OK;
        if (m_waiting.size() >= m_options.mostWaiting) {
            return Refuse(ErrorCode::NoSystemResources, L"Too many wait for a connection to the database.");
        }
        m_waiting.push_back(&waiter);
    }
    const HRESULT waited = WaitForPlace(waiter, abandoned.get());
    idle = std::move(waiter.idle);
    return waited;
}

bool CConnectionPool::TakeFreePlace(CIdle& idle) noexcept {
    if (!m_waiting.empty() || m_taken >= m_options.mostOpen) return false;
    ++m_taken;
    if (m_idle.empty()) return true;
    idle = std::move(m_idle.back());
    m_idle.pop_back();
    return true;
}

HRESULT CConnectionPool::WaitForPlace(CWaiter& waiter, CEvent* abandoned) {
    const auto ended = abandoned ? WaitForAny({waiter.turn.get(), abandoned}, m_options.longestWait)
                                 : WaitForAny({waiter.turn.get()}, m_options.longestWait);
    {
        const std::lock_guard guard(m_lock);
        if (!waiter.isServed) std::erase(m_waiting, &waiter);
    }
    const bool isWanted = !ended.IsOk() || ended.Value() == 0;
    if (isWanted && waiter.isServed) return S_OK;
    if (isWanted) {
        return Refuse(ErrorCode::Timeout, L"No connection to the database became free in time.");
    }
    if (waiter.isServed) GivePlace(std::move(waiter.idle));
    SetErrorInfo(L"Nobody waits for the result any more.");
    return DB_E_CANCELED;
}

void CConnectionPool::GivePlace(CIdle idle) noexcept {
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

void CConnectionPool::GiveBack(std::unique_ptr<IConnection> connection, std::uint64_t version) noexcept {
    if (connection && !connection->Reset()) connection.reset();
    GivePlace({std::move(connection), version, m_clock.Steady()});
}

void CConnectionPool::DropStale(std::uint64_t version, Closing& closing) {
    const auto oldest = m_clock.Steady() - m_options.idleTime;
    const auto isFit = [&](const CIdle& idle) { return idle.version == version && idle.since >= oldest; };
    // Sorting them needs memory.
    if (std::ranges::all_of(m_idle, isFit)) return;
    const auto stale = std::ranges::stable_partition(m_idle, isFit);
    std::ranges::move(stale, std::back_inserter(closing));
    m_idle.erase(stale.begin(), stale.end());
}

}  // namespace quorbel
