#pragma once

#include <filesystem>
#include <memory>

#include "platform/service_manager/ServiceManager.h"
#include "platform/service_manager/SystemdBus.h"

namespace quorbel {

/// The services of systemd whose unit files are in one folder.
class CSystemdDatabase final : public IServiceDatabase {
 public:
    CSystemdDatabase(std::shared_ptr<ISystemdBus> bus, std::filesystem::path folder)
        : m_bus(std::move(bus)), m_folder(std::move(folder)) {}

    ErrorCode Create(const CServiceDescription& description) override;
    CResult<std::unique_ptr<IKnownService>> Open(const std::wstring& name) override;

 private:
    ErrorCode EnableNew(const std::string& unit);

    const std::shared_ptr<ISystemdBus> m_bus;
    const std::filesystem::path m_folder;
};

}  // namespace quorbel
