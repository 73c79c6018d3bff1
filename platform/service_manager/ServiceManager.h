#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/Error.h"

namespace quorbel {

enum class ServiceType : std::uint32_t { OwnProcess = 0x10 };

enum class ServiceState : std::uint32_t { Stopped = 1, StartPending = 2, StopPending = 3, Running = 4 };

/// What a service manager asks a service for.
enum class ServiceControl : std::uint32_t { Stop = 1, Interrogate = 4, Shutdown = 5, DeviceEvent = 11 };

/// Bits of the controls that a service accepts.
inline constexpr std::uint32_t kAcceptNothing = 0;
inline constexpr std::uint32_t kAcceptStop = 1;
inline constexpr std::uint32_t kAcceptShutdown = 4;

/// What a service reports of itself.
struct CServiceStatus {
    ServiceType type = ServiceType::OwnProcess;
    ServiceState state = ServiceState::Stopped;
    std::uint32_t accepted = kAcceptNothing;
    std::uint32_t exitCode = 0;  ///< a Win32 error number
    std::uint32_t specificExitCode = 0;
    std::uint32_t checkPoint = 0;  ///< counts the steps of a change of state; 0 otherwise
    std::uint32_t waitHint = 0;    ///< milliseconds until the next report; 0 when nothing is known
    bool operator==(const CServiceStatus&) const = default;
};

/// A service to be: a process of its own, of the superuser, started with the system.
struct CServiceDescription {
    std::wstring name;         ///< what the manager knows it by
    std::wstring displayName;  ///< what people know it by
    std::filesystem::path program;
};

/// A service that the manager knows. For one thread at a time.
class IKnownService {
 public:
    virtual ~IKnownService() = default;
    /// Asks it to stop, and does not wait for that. ServiceNotActive when it does not run.
    virtual ErrorCode Stop() = 0;
    virtual CResult<ServiceState> QueryState() = 0;
    /// Has the manager forget it. When that fails halfway, it can be tried again.
    virtual ErrorCode Delete() = 0;
};

/// The manager's services, open for any change. For one thread at a time.
class IServiceDatabase {
 public:
    virtual ~IServiceDatabase() = default;
    /// Makes a service known; nothing of it is left after a failure. ServiceExists when the name is taken.
    virtual ErrorCode Create(const CServiceDescription& description) = 0;
    /// ServiceDoesNotExist when the manager does not know the name.
    virtual CResult<std::unique_ptr<IKnownService>> Open(const std::wstring& name) = 0;
};

/// The service manager of the machine, from which services are installed and removed, and which starts and
/// stops the one that this process is.
class IServiceManager {
 public:
    using MainRoutine = void (*)();
    /// Answers with an error number, 0 for success.
    using Handler = std::uint32_t (*)(std::uint32_t control, std::uint32_t eventType, void* eventData);

    /// A service of this process. The table of them ends with an entry without a name.
    struct TableEntry {
        const wchar_t* name;
        MainRoutine main;
    };

    virtual ~IServiceManager() = default;

    /// AccessDenied without the right to change services, ServiceManagerUnavailable when there is no manager.
    virtual CResult<std::unique_ptr<IServiceDatabase>> OpenDatabase() = 0;

    /// Runs the main routine of the table's one service on a thread of its own and gives its handler the
    /// manager's controls on this one, until the routine returns. A stop that comes while the service does
    /// not accept one is kept until it does; further ones are dropped. Once per process.
    /// ServiceControllerConnectFailed when the manager did not start this process.
    virtual ErrorCode RunDispatcher(const TableEntry* table) = 0;
    /// From the main routine: who is given the controls. The status belongs to the service of that name.
    virtual ErrorCode RegisterHandler(const wchar_t* name, Handler handler) = 0;
    /// Tells the manager the service's state. Any thread; reports made at once keep no order.
    virtual ErrorCode SetStatus(const CServiceStatus& status) = 0;
};

}  // namespace quorbel
