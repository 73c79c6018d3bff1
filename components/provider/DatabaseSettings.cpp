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

std::shared_ptr<CEvent> MakeEvent() {
    auto event = CEvent::Create(EventReset::Manual);
    return event.IsOk() ? std::move(event).Value() : nullptr;
}

}  // namespace

CDatabaseSettings::CDatabaseSettings(std::shared_ptr<IKey> localMachine)
    : m_localMachine(std::move(localMachine)), m_changed(MakeEvent()) {}

HRESULT CDatabaseSettings::Pool(std::shared_ptr<CConnectionPool>& pool) {
    std::shared_ptr<CConnectionPool> former;  // closes its connections without the lock
    {
        const std::lock_guard guard(m_lock);
        const HRESULT result = m_isFollowed && !m_changed->Test() ? S_OK : Update(former);
        if (!Succeeded(result)) return result;
        pool = m_pool;
    }
    if (former && former->Database().ResetMayWait()) {
        CConnectionReset::Returned closing;
        closing.emplace_back().pool = std::move(former);
        m_reset->Take(std::move(closing));
    }
    return S_OK;
}

HRESULT CDatabaseSettings::Update(std::shared_ptr<CConnectionPool>& former) {
    CChoice choice;
    // Followed before it is read, so that no change falls between.
    const ErrorCode opened = Follow();
    const HRESULT result = Read(opened, choice);
    if (!Succeeded(result)) {
        m_isFollowed = false;
        return result;
    }
    if (!m_pool || choice != m_choice) {
        CPoolOptions options;
        options.mostOpen = choice.mostOpen;
        former = std::exchange(m_pool, std::make_shared<CConnectionPool>(Open(choice), options, m_reset));
        m_choice = std::move(choice);
    }
    return S_OK;
}

ErrorCode CDatabaseSettings::Follow() {
    m_isFollowed = false;
    if (m_key && Arm()) return ErrorCode::Success;
    auto opened = m_localMachine->Open(kSettingsPath, KeyAccess::Read);
    if (!opened.IsOk()) return opened.Error();
    m_key = std::move(opened).Value();
    Ignore(Arm());
    return ErrorCode::Success;
}

bool CDatabaseSettings::Arm() {
    if (!m_changed) return false;
    m_changed->Clear();
    m_isFollowed = m_key->Watch(WatchScope::Key, WatchFilter::Values, m_changed) == ErrorCode::Success;
    return m_isFollowed;
}

std::shared_ptr<ISqlDatabase> CDatabaseSettings::Open(const CChoice& choice) {
    return choice.connection.empty() ? OpenSqliteDatabase(choice.database)
                                     : OpenOdbcDatabase(choice.connection);
}

HRESULT CDatabaseSettings::Read(ErrorCode opened, CChoice& choice) const {
    const CResult<std::vector<CNamedValue>> values = opened == ErrorCode::Success ? m_key->Values() : opened;
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

}  // namespace quorbel
