#include "components/provider/DatabaseSettings.h"

#include <algorithm>
#include <mutex>

#include "components/provider/OdbcDatabase.h"
#include "components/provider/SqliteDatabase.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"

namespace quorbel {

namespace {

constexpr wchar_t kSettingsPath[] = L"SOFTWARE\\Quorbel\\Archive";
constexpr std::size_t kMostSqliteConnections = 256;
/// Servers commonly allow 100 sessions, to all who use them.
constexpr std::size_t kMostServerConnections = 64;

std::wstring TextOf(const CValue& value) {
    if (value.type == ValueType::Text) return value.AsText();
    return value.type == ValueType::ExpandableText ? ExpandEnvironment(value.AsText()) : std::wstring();
}

}  // namespace

HRESULT CDatabaseSettings::Pool(std::shared_ptr<CConnectionPool>& pool) {
    CChoice choice;
    const HRESULT result = Read(choice);
    if (!Succeeded(result)) return result;
    std::shared_ptr<CConnectionPool> former;  // closes its connections without the lock
    const std::lock_guard guard(m_lock);
    if (!m_pool || choice != m_choice) {
        CPoolOptions options;
        options.mostOpen = choice.mostOpen;
        auto database = choice.connection.empty() ? OpenSqliteDatabase(choice.database)
                                                  : OpenOdbcDatabase(choice.connection);
        former = std::exchange(m_pool, std::make_shared<CConnectionPool>(std::move(database), options));
        m_choice = std::move(choice);
    }
    pool = m_pool;
    return S_OK;
}

HRESULT CDatabaseSettings::Read(CChoice& choice) const {
    const auto key = m_localMachine->Open(kSettingsPath, KeyAccess::Read);
    const auto values = key.IsOk() ? key.Value()->Values() : key.Error();
    choice.mostOpen = 0;
    if (values.IsOk()) {
        for (const auto& [name, value] : values.Value()) {
            if (EqualNoCase(name, L"Database")) choice.database = TextOf(value);
            if (EqualNoCase(name, L"Connection")) choice.connection = TextOf(value);
            if (EqualNoCase(name, L"MaxConnections")) choice.mostOpen = value.AsNumber32().value_or(0);
        }
    }
    if (choice.mostOpen == 0) {
        choice.mostOpen = choice.connection.empty() ? kMostSqliteConnections : kMostServerConnections;
    }
    if (!choice.database.empty() || !choice.connection.empty()) return S_OK;
    SetErrorInfo(std::wstring(kSettingsPath) + L" names no \"Database\" and no \"Connection\".");
    return E_FAIL;
}

}  // namespace quorbel
