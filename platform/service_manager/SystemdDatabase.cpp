#include "platform/service_manager/SystemdDatabase.h"

#include "platform/service_manager/UnitFile.h"

namespace quorbel {

namespace {

CResult<bool> IsKnown(ISystemdBus& bus, const std::string& unit) {
    const auto state = bus.LoadState(unit);
    if (!state.IsOk()) return state.Error();
    return state.Value() != "not-found";
}

CResult<ServiceState> StateOf(ISystemdBus& bus, const std::string& unit) {
    const auto state = bus.ActiveState(unit);
    if (!state.IsOk()) return state.Error();
    if (state.Value() == "activating") return ServiceState::StartPending;
    if (state.Value() == "deactivating") return ServiceState::StopPending;
    if (state.Value() == "active" || state.Value() == "reloading") return ServiceState::Running;
    return ServiceState::Stopped;
}

class CSystemdService final : public IKnownService {
 public:
    CSystemdService(std::shared_ptr<ISystemdBus> bus, std::filesystem::path folder, std::string unit)
        : m_bus(std::move(bus)), m_folder(std::move(folder)), m_unit(std::move(unit)) {}

    ErrorCode Stop() override {
        const auto state = QueryState();
        if (!state.IsOk()) return state.Error();
        if (state.Value() == ServiceState::Stopped) return ErrorCode::ServiceNotActive;
        return m_bus->Stop(m_unit);
    }
    CResult<ServiceState> QueryState() override { return StateOf(*m_bus, m_unit); }
    ErrorCode Delete() override {
        ErrorCode error = m_bus->Disable(m_unit);
        if (error == ErrorCode::Success) error = RemoveUnitFile(m_folder, m_unit);
        if (error == ErrorCode::Success) error = m_bus->Reload();
        // One that failed would stay listed otherwise; of one that did not, there is nothing to forget.
        if (error == ErrorCode::Success) Ignore(m_bus->ResetFailed(m_unit));
        return error;
    }

 private:
    const std::shared_ptr<ISystemdBus> m_bus;
    const std::filesystem::path m_folder;
    const std::string m_unit;
};

}  // namespace

ErrorCode CSystemdDatabase::Create(const CServiceDescription& description) {
    const std::string unit = UnitName(description.name);
    const auto text = UnitFileText(description);
    if (!text.IsOk()) return text.Error();
    const auto known = IsKnown(*m_bus, unit);
    if (!known.IsOk()) return known.Error();
    if (known.Value()) return ErrorCode::ServiceExists;
    const ErrorCode error = CreateUnitFile(m_folder, unit, text.Value());
    if (error == ErrorCode::AlreadyExists) return ErrorCode::ServiceExists;
    return error == ErrorCode::Success ? EnableNew(unit) : error;
}

ErrorCode CSystemdDatabase::EnableNew(const std::string& unit) {
    ErrorCode error = m_bus->Enable(unit);
    if (error == ErrorCode::Success) error = m_bus->Reload();
    if (error == ErrorCode::Success) return error;
    // What fails now leaves no less than was left before it.
    Ignore(m_bus->Disable(unit));
    Ignore(RemoveUnitFile(m_folder, unit));
    Ignore(m_bus->Reload());
    return error;
}

CResult<std::unique_ptr<IKnownService>> CSystemdDatabase::Open(const std::wstring& name) {
    const std::string unit = UnitName(name);
    const auto known = IsKnown(*m_bus, unit);
    if (!known.IsOk()) return known.Error();
    if (!known.Value()) return ErrorCode::ServiceDoesNotExist;
    return std::unique_ptr<IKnownService>(std::make_unique<CSystemdService>(m_bus, m_folder, unit));
}

}  // namespace quorbel
