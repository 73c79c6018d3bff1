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
        former = std::exchange(m_pool, std::make_shared<CConnectionPool>(Open(choice), options));
        m_choice = std::move(choice);
    }
    pool = m_pool;
    return S_OK;
}

std::shared_ptr<ISqlDatabase> CDatabaseSettings::Open(const CChoice& choice) {
    return choice.connection.empty() ? OpenSqliteDatabase(choice.database)
                                     : OpenOdbcDatabase(choice.connection);
}

HRESULT CDatabaseSettings::Read(CChoice& choice) {
    const auto values = Values();
    std::optional<std::uint32_t> mostOpen;
    if (!values.IsOk() && values.Error() != ErrorCode::FileNotFound) {
        SetErrorInfo(std::wstring(kSettingsPath) + L" cannot be read.");
        return E_FAIL;
    }
    if (values.IsOk()) {
        for (const auto& [name, value] : values.Value()) {
            if (EqualNoCase(name, L"Database")) choice.database = TextOf(value);
            if (EqualNoCase(name, L"Connection")) choice.connection = TextOf(value);
            if (EqualNoCase(name, L"MaxConnections")) mostOpen = value.AsNumber32();
        }
    }
    const bool isFile = choice.connection.empty();
    choice.mostOpen = mostOpen.value_or(isFile ? kMostSqliteConnections : kMostServerConnections);
    choice.mostOpen = std::max<std::size_t>(choice.mostOpen, 1);
    if (!isFile || !choice.database.empty()) return S_OK;
    SetErrorInfo(std::wstring(kSettingsPath) + L" names no \"Database\".");
    return E_FAIL;
}

CResult<std::vector<CNamedValue>> CDatabaseSettings::Values() {
    std::shared_ptr<IKey> key;
    {
        const std::lock_guard guard(m_lock);
        key = m_key;
    }
    if (key) {
        auto values = key->Values();
        if (values.Error() != ErrorCode::KeyDeleted) return values;
    }
    auto opened = m_localMachine->Open(kSettingsPath, KeyAccess::Read);
    if (!opened.IsOk()) return opened.Error();
    key = std::move(opened).Value();
    {
        const std::lock_guard guard(m_lock);
        m_key = key;
    }
    return key->Values();
}

}  // namespace quorbel
