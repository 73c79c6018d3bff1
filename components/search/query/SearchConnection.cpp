#include "components/search/query/SearchConnection.h"

#include <algorithm>
#include <new>

#include "components/search/query/LikePattern.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

/// Steps of the virtual machine between two looks at whether the command must end. Finding words is one step:
/// the index looks by itself meanwhile.
constexpr int kStepsBetweenLooks = 4000;
constexpr std::size_t kMostStatements = 32;

void IsLikeFunction(sqlite3_context* context, int, sqlite3_value** arguments) {
    try {
        const auto text = [&](sqlite3_value* value) {
            const auto* const bytes = reinterpret_cast<const char*>(::sqlite3_value_text(value));
            return FromUtf8({bytes, static_cast<std::size_t>(::sqlite3_value_bytes(value))});
        };
        if (::sqlite3_value_type(arguments[0]) == SQLITE_NULL) return;
        ::sqlite3_result_int(context, IsLike(text(arguments[0]), text(arguments[1])) ? 1 : 0);
    } catch (const std::bad_alloc&) {
        ::sqlite3_result_error_nomem(context);
    }
}

}  // namespace

HRESULT CSearchConnection::Open(const std::string& folder, const CSearchOptions& options, IClock& clock,
                                std::unique_ptr<IConnection>& connection) {
    auto index = CIndexDatabase::Open(folder, CIndexDatabase::Access::Read);
    if (!index.IsOk()) {
        const auto message = SystemMessage(ToNumber(index.Error()));
        SetErrorInfo(index.Error() == ErrorCode::FileNotFound
                         ? L"There is no search index yet."
                         : L"The search index cannot be opened: " +
                               message.value_or(L"for an unknown reason."));
        // Its files are nothing that a caller has asked for, or might be refused.
        return E_FAIL;
    }
    std::unique_ptr<CSearchConnection> opened(
        new CSearchConnection(std::move(index).Value(), options, clock));
    const int result = ::sqlite3_create_function_v2(opened->m_index->Handle(), "is_like", 2,
                                                    SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr,
                                                    IsLikeFunction, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) return opened->Failure(result);
    connection = std::move(opened);
    return S_OK;
}

CSearchConnection::CSearchConnection(std::unique_ptr<CIndexDatabase> index, const CSearchOptions& options,
                                     IClock& clock)
    : m_index(std::move(index)),
      m_longestCommand(options.longestCommand),
      m_longestResult(options.longestResult),
      m_clock(clock) {
    m_index->EndWhen([this] { return MustEnd(); });
    ::sqlite3_progress_handler(
        m_index->Handle(), kStepsBetweenLooks,
        [](void* self) { return static_cast<CSearchConnection*>(self)->MustEnd() ? 1 : 0; }, this);
}

CSearchConnection::~CSearchConnection() = default;

bool CSearchConnection::Reset() noexcept {
    m_isCanceled = false;
    m_isLate = false;
    m_spent = {};
    m_began = {};
    return true;
}

HRESULT CSearchConnection::Prepare(const std::string& text, Statement& statement) {
    const auto found = m_statements.find(text);
    if (found != m_statements.end() && found->second.statement.use_count() == 1) {
        found->second.lastUse = ++m_uses;
        statement = found->second.statement;
        return S_OK;
    }
    m_stepped = m_clock.Steady();
    sqlite3_stmt* prepared = nullptr;
    const int result =
        ::sqlite3_prepare_v3(m_index->Handle(), text.c_str(), static_cast<int>(text.size() + 1),
                             SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
    if (result != SQLITE_OK) return Failure(result);
    statement = Statement(prepared, CFinalizeSearch());
    if (found != m_statements.end()) return S_OK;
    if (m_statements.size() >= kMostStatements) {
        m_statements.erase(std::ranges::min_element(m_statements, {},
                                                    [](const auto& entry) { return entry.second.lastUse; }));
    }
    m_statements.emplace(text, CKept{statement, ++m_uses});
    return S_OK;
}

HRESULT CSearchConnection::Step(sqlite3_stmt* statement) {
    m_stepped = m_clock.Steady();
    if (m_began == std::chrono::nanoseconds()) m_began = m_stepped;
    if (MustEnd()) return Failure(SQLITE_INTERRUPT);
    const int result = ::sqlite3_step(statement);
    m_spent += m_clock.Steady() - m_stepped;
    if (result == SQLITE_ROW) return S_OK;
    return result == SQLITE_DONE ? DB_S_ENDOFROWSET : Failure(result);
}

bool CSearchConnection::MustEnd() noexcept {
    const std::chrono::nanoseconds now = m_clock.Steady();
    m_isLate = m_isLate || m_spent + (now - m_stepped) > m_longestCommand || now - m_began > m_longestResult;
    return m_isCanceled || m_isLate;
}

HRESULT CSearchConnection::Failure(int code) {
    switch (code & 0xFF) {
        case SQLITE_INTERRUPT:
            if (m_isLate && !m_isCanceled) {
                SetErrorInfo(L"The search takes too long.");
                return HResultFromWin32(ToNumber(ErrorCode::Timeout));
            }
            SetErrorInfo(L"The command was cancelled.");
            return DB_E_CANCELED;
        case SQLITE_NOMEM: return E_OUTOFMEMORY;
        default: break;
    }
    SetErrorInfo(L"The search index reports: " + FromUtf8(::sqlite3_errmsg(m_index->Handle())));
    const bool isBusy = (code & 0xFF) == SQLITE_BUSY || (code & 0xFF) == SQLITE_LOCKED;
    return isBusy ? HResultFromWin32(ToNumber(ErrorCode::SharingViolation)) : E_FAIL;
}

}  // namespace quorbel
