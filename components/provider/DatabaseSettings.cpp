#include "components/provider/DatabaseSettings.h"

#include <algorithm>
#include <mutex>

#include "components/provider/SqliteDatabase.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"

namespace quorbel {

namespace {

constexpr wchar_t kSettingsPath[] = L"SOFTWARE\\Quorbel\\Archive";
constexpr std::size_t kMostSqliteConnections = 256;

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
        former = std::exchange(
            m_pool, std::make_shared<CConnectionPool>(OpenSqliteDatabase(choice.database), options));
        m_choice = std::move(choice);
    }
    pool = m_pool;
    return S_OK;
}

HRESULT CDatabaseSettings::Read(CChoice& choice) const {
    const auto key = m_localMachine->Open(kSettingsPath, KeyAccess::Read);
    const auto values = key.IsOk() ? key.Value()->Values() : key.Error();
    choice.mostOpen = kMostSqliteConnections;
    if (values.IsOk()) {
        for (const auto& [name, value] : values.Value()) {
            if (EqualNoCase(name, L"Database")) choice.database = TextOf(value);
            if (EqualNoCase(name, L"MaxConnections")) {
                choice.mostOpen = std::max(value.AsNumber32().value_or(kMostSqliteConnections), 1U);
            }
        }
    }
    if (!choice.database.empty()) return S_OK;
    SetErrorInfo(std::wstring(kSettingsPath) + L" names no \"Database\".");
    return E_FAIL;
}

}  // namespace quorbel
