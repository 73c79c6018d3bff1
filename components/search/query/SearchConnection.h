#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <unordered_map>

#include "components/oledb/Connection.h"
#include "components/search/index/IndexDatabase.h"
#include "components/search/query/SearchPlan.h"
#include "platform/Clock.h"

namespace quorbel {

struct CSearchOptions {
    std::size_t mostConnections = 64;  ///< to the index at a time; who comes when all are taken waits
    /// The time that a command may spend in the index, the fetching of its rows included.
    std::chrono::milliseconds longestCommand{20'000};
    /// The time in which its rows must have been taken: who is slower keeps a connection from others, and the
    /// index from being cut.
    std::chrono::milliseconds longestResult{120'000};
};

struct CFinalizeSearch {
    void operator()(sqlite3_stmt* statement) const noexcept { ::sqlite3_finalize(statement); }
};

/// A connection to the index, for reading. Its prepared statements are kept. One thread at a time, Cancel
/// from any. Failures leave a description in platform/com/ErrorInfo.h.
class CSearchConnection final : public IConnection {
 public:
    static HRESULT Open(const std::string& folder, const CSearchOptions& options, IClock& clock,
                        std::unique_ptr<IConnection>& connection);
    ~CSearchConnection() override;

    void Cancel() noexcept override { m_isCanceled = true; }
    [[nodiscard]] bool Reset() noexcept override;

    using Statement = std::shared_ptr<sqlite3_stmt>;
    /// Prepares a statement, or finds one that was. One that is in use is prepared once more.
    HRESULT Prepare(const std::string& text, Statement& statement);
    /// S_OK with a row, DB_S_ENDOFROWSET without.
    HRESULT Step(sqlite3_stmt* statement);
    /// The HRESULT of an SQLite result.
    HRESULT Failure(int code);

 private:
    CSearchConnection(std::unique_ptr<CIndexDatabase> index, const CSearchOptions& options, IClock& clock);
    bool MustEnd() noexcept;

    struct CKept {
        Statement statement;
        std::uint64_t lastUse;
    };
    const std::unique_ptr<CIndexDatabase> m_index;
    const std::chrono::nanoseconds m_longestCommand;
    const std::chrono::nanoseconds m_longestResult;
    IClock& m_clock;
    std::atomic<bool> m_isCanceled{false};
    std::chrono::nanoseconds m_spent{};    // by the present command, without the step that runs
    std::chrono::nanoseconds m_stepped{};  // when the step that runs began
    std::chrono::nanoseconds m_began{};    // when the command's first did; 0 before it
    bool m_isLate = false;
    std::uint64_t m_uses = 0;
    std::unordered_map<std::string, CKept> m_statements;
};

}  // namespace quorbel
