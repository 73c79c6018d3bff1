#pragma once

#include <sql.h>
#include <sqlext.h>
#include <utility>

namespace quorbel {

/// Owns a handle of the driver manager.
class COdbcHandle {
 public:
    COdbcHandle() noexcept = default;
    /// A handle of `type` (SQL_HANDLE_...) below `parent`; not open when it cannot be had.
    COdbcHandle(SQLSMALLINT type, SQLHANDLE parent) noexcept : m_type(type) {
        if (!SQL_SUCCEEDED(SQLAllocHandle(type, parent, &m_handle))) m_handle = nullptr;
    }
    COdbcHandle(COdbcHandle&& other) noexcept
        : m_type(other.m_type), m_handle(std::exchange(other.m_handle, nullptr)) {}
    COdbcHandle& operator=(COdbcHandle&& other) noexcept {
        std::swap(m_type, other.m_type);
        std::swap(m_handle, other.m_handle);
        return *this;
    }
    ~COdbcHandle() {
        if (!m_handle) return;
        // psqlodbc forgets what it knows of a statement that was only prepared unless that is closed first.
        if (m_type == SQL_HANDLE_STMT) SQLFreeStmt(m_handle, SQL_CLOSE);
        SQLFreeHandle(m_type, m_handle);
    }

    bool IsOpen() const noexcept { return m_handle != nullptr; }
    SQLHANDLE Get() const noexcept { return m_handle; }

 private:
    SQLSMALLINT m_type = SQL_HANDLE_STMT;
    SQLHANDLE m_handle = nullptr;
};

}  // namespace quorbel
