#include "service/QuorbelHTTPService.h"

#include "LibService/MessageIds.h"
#include "platform/com/ClassRegistry.h"

namespace quorbel {

namespace {

/// How long value changes are collected before the hosts are looked at.
constexpr std::chrono::milliseconds kCollectionPause{100};

}  // namespace

struct CQuorbelHTTPService::Keys {
    CRegistryKey service;
    CRegistryKey hosts;       ///< carries the names watch
    CRegistryKey hostsBelow;  ///< the same key once more: carries the values watch
    CRegistryKey applications;
};

struct CQuorbelHTTPService::Watches {
    std::shared_ptr<CEvent> names;
    std::shared_ptr<CEvent> values;

    ErrorCode ArmNames(Keys& keys) const {
        return keys.hosts.WatchKey(WatchScope::Key, WatchFilter::Names, names);
    }
    ErrorCode ArmValues(Keys& keys) const {
        return keys.hostsBelow.WatchKey(WatchScope::Subtree, WatchFilter::Values, values);
    }
};

CStatus CQuorbelHTTPService::Run() {
    auto names = CEvent::Create(EventReset::Auto);
    if (!names.IsOk()) return SystemError(names.Error());
    auto values = CEvent::Create(EventReset::Auto);
    if (!values.IsOk()) return SystemError(values.Error());
    const Watches watches{std::move(names).Value(), std::move(values).Value()};
    CComPtr<IArchiveFileSystem> archive;
    if (const HRESULT result = CreateComInstance(kArchiveFileSystemClass, archive); !Succeeded(result)) {
        return HResultError(result);
    }
    Keys keys;
    RETURN_IF_FAILED(OpenKeys(keys));
    RETURN_IF_FAILED(BuildAllHosts(std::move(archive), keys.hosts, keys.applications));
    RETURN_IF_SYSTEM_ERROR(watches.ArmNames(keys));
    RETURN_IF_SYSTEM_ERROR(watches.ArmValues(keys));
    // What changed between reading the hosts and arming the watches is caught up with at once.
    watches.names->Set();
    watches.values->Set();
    RETURN_IF_FAILED(Serve(keys, watches));
    return StopAll();
}

CStatus CQuorbelHTTPService::OpenKeys(Keys& keys) const {
    const std::wstring path = std::wstring(L"Software\\Quorbel\\") + kDisplayName + L"\\";
    const auto open = [this, &path](const wchar_t* subkey, CRegistryKey& key) {
        auto opened = m_localMachine.Open(path + subkey, KeyAccess::Read);
        if (opened.IsOk()) key = CRegistryKey(std::move(opened).Value());
        return opened.IsOk();
    };
    if (!open(L"", keys.service) || !open(L"Hosts\\", keys.hosts) || !open(L"Hosts\\", keys.hostsBelow)) {
        return MessageError(message::kConfigurationMissing);
    }
    open(L"Applications\\", keys.applications);
    return {};
}

CStatus CQuorbelHTTPService::Serve(Keys& keys, const Watches& watches) {
    while (!m_stop->Test()) {
        const auto woken = WaitForAny({watches.names.get(), watches.values.get(), m_stop.get()});
        if (!woken.IsOk()) return SystemError(woken.Error());
        if (woken.Value() == 0) {
            RETURN_IF_SYSTEM_ERROR(watches.ArmNames(keys));
            SynchroniseHostSet();
            // A host whose key was replaced by another of its name is found changed by the next pass.
            watches.values->Set();
        } else if (woken.Value() == 1) {
            m_clock.Pause(kCollectionPause, *m_stop);
            RETURN_IF_SYSTEM_ERROR(watches.ArmValues(keys));
            RebuildChangedHosts(keys.hosts).Report();
        }
    }
    return {};
}

CStatus CQuorbelHTTPService::RebuildChangedHosts(const CRegistryKey& hosts) {
    const auto copy = hosts.DuplicateKey();
    if (!copy.IsOk()) return SystemError(copy.Error());
    return copy.Value().EnumerateSubkeys(
        [this](const std::wstring& host) { return RebuildHostIfChanged(host); });
}

}  // namespace quorbel
