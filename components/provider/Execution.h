#pragma once

#include <memory>
#include <span>

#include "components/provider/CommandFunctions.h"
#include "components/provider/SqlSession.h"

namespace quorbel {

/// One execution of a command: it has the session's connection until it ends. One thread at a time.
class CExecution {
 public:
    /// Runs the command up to its first row.
    static HRESULT Run(std::shared_ptr<CSqlSession> connection, std::shared_ptr<CCancelFlag> isCanceled,
                       CComPtr<CSinkPoint> point, const CSqlCommand& command,
                       std::span<const CSqlArgument> arguments, std::unique_ptr<CExecution>& execution);
    ~CExecution();
    CExecution(const CExecution&) = delete;
    CExecution& operator=(const CExecution&) = delete;

    ISqlRows& Rows() const noexcept { return *m_rows; }
    const CCommandFunctions& Functions() const noexcept { return m_functions; }
    bool IsCanceled() const noexcept { return *m_isCanceled; }

 private:
    CExecution(std::shared_ptr<CSqlSession> connection, std::shared_ptr<CCancelFlag> isCanceled,
               CComPtr<CSinkPoint> point)
        : m_connection(std::move(connection)),
          m_isCanceled(std::move(isCanceled)),
          m_functions(std::move(point)) {}

    const std::shared_ptr<CSqlSession> m_connection;
    const std::shared_ptr<CCancelFlag> m_isCanceled;
    CCommandFunctions m_functions;
    std::unique_ptr<ISqlRows> m_rows;
};

}  // namespace quorbel
