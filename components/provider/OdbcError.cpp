#include "components/provider/OdbcError.h"

#include <sqlext.h>
#include <sqlucode.h>
#include <vector>

#include "platform/Error.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

constexpr std::uint32_t kSharingViolation = 32;
static_assert(sizeof(SQLWCHAR) == sizeof(char16_t));

std::wstring FromOdbc(const SQLWCHAR* text, std::size_t length) {
    return FromUtf16({reinterpret_cast<const char16_t*>(text), length});
}

/// What psqlodbc puts behind the server's words.
std::wstring WithoutBoilerplate(std::wstring message) {
    static constexpr std::wstring_view kTail = L";\nError while executing the query";
    if (message.ends_with(kTail)) message.resize(message.size() - kTail.size());
    return message;
}

}  // namespace

COdbcError TakeOdbcError(SQLSMALLINT type, SQLHANDLE handle) {
    COdbcError error;
    std::vector<SQLWCHAR> text(1024);
    SQLWCHAR state[6] = {};
    SQLINTEGER native = 0;
    SQLSMALLINT length = 0;
    const auto read = [&] {
        return SQLGetDiagRecW(type, handle, 1, state, &native, text.data(),
                              static_cast<SQLSMALLINT>(text.size()), &length);
    };
    SQLRETURN result = read();
    if (result == SQL_SUCCESS_WITH_INFO && static_cast<std::size_t>(length) >= text.size()) {
        text.resize(std::min<std::size_t>(length + 1u, 32767));
        result = read();
    }
    if (!SQL_SUCCEEDED(result)) return error;
    for (int i = 0; i < 5; ++i) error.state += static_cast<char>(state[i]);
    const std::size_t available = std::min<std::size_t>(length, text.size() - 1);
    error.message = WithoutBoilerplate(FromOdbc(text.data(), available));
    return error;
}

bool IsConnectionLost(const COdbcError& error) noexcept {
    return error.state.starts_with("08") || error.state == "57P01" || error.state == "57P02" ||
           error.state == "57P03";
}

HRESULT ReportOdbcError(const COdbcError& error) {
    SetErrorInfo(L"SQLSTATE " + FromUtf8(error.state) + L": " + error.message);
    const std::string& state = error.state;
    if (IsConnectionLost(error)) return E_FAIL;
    if (state == "55P03" || state == "40001" || state == "40P01") return HResultFromWin32(kSharingViolation);
    if (state == "53100") return HResultFromWin32(ToNumber(ErrorCode::DiskFull));
    return DB_E_ERRORSINCOMMAND;
}

}  // namespace quorbel
