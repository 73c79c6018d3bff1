#include "components/oledb/SessionConnection.h"

#include <mutex>

#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

HRESULT CSessionConnection::Take(const CCancelFlag& command) {
    bool isUsed = false;
    {
        const std::lock_guard guard(m_lock);
        if (m_isTaken) {
            SetErrorInfo(L"The session has another command's rowset open.");
            return DB_E_OBJECTOPEN;
        }
        m_isTaken = true;
        isUsed = std::exchange(m_isUsed, true);
    }
    struct CTaken {
        CSessionConnection* connection;
        ~CTaken() {
            if (connection) connection->GiveBack();
        }
    } taken{this};
    const HRESULT renewed = isUsed ? m_connection->Renew() : S_OK;
    if (Succeeded(renewed)) {
        const std::lock_guard guard(m_lock);
        m_command = &command;
    }
    // From here on Cancel reaches the connection; what came before it left its flag.
    if (!Succeeded(renewed)) return renewed;
    if (!command) {
        taken.connection = nullptr;
        return S_OK;
    }
    SetErrorInfo(L"The command was cancelled.");
    return DB_E_CANCELED;
}

void CSessionConnection::GiveBack() noexcept {
    const std::lock_guard guard(m_lock);
    m_command = nullptr;
    m_isTaken = false;
}

void CSessionConnection::Cancel(const CCancelFlag& command) noexcept {
    const std::lock_guard guard(m_lock);
    if (m_command == &command) (**m_connection).Cancel();
}

}  // namespace quorbel
