#include "platform/service_manager/SystemdBus.h"

#include <cerrno>
#include <cstdlib>
#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>

namespace quorbel {

namespace {

constexpr const char* kDestination = "org.freedesktop.systemd1";
constexpr const char* kManagerPath = "/org/freedesktop/systemd1";
constexpr const char* kManager = "org.freedesktop.systemd1.Manager";
constexpr const char* kUnit = "org.freedesktop.systemd1.Unit";

/// Reading all unit files anew may take long on a busy machine.
constexpr std::uint64_t kTimeLimit = 120'000'000;  // microseconds

struct CReleaseBus {
    void operator()(sd_bus* bus) const noexcept { ::sd_bus_flush_close_unref(bus); }
};
struct CReleaseMessage {
    void operator()(sd_bus_message* message) const noexcept { ::sd_bus_message_unref(message); }
};
struct CReleaseText {
    void operator()(char* text) const noexcept { std::free(text); }
};

using Message = std::unique_ptr<sd_bus_message, CReleaseMessage>;

/// The bus answers with an errno value below 0.
ErrorCode FromResult(int result) noexcept {
    if (result >= 0) return ErrorCode::Success;
    // No right to change units is no missing privilege of the process.
    return result == -EPERM ? ErrorCode::AccessDenied : ErrorFromErrno(-result);
}

class CSystemdBus final : public ISystemdBus {
 public:
    explicit CSystemdBus(sd_bus* bus) noexcept : m_bus(bus) {}

    ErrorCode Reload() override { return Call(nullptr, "Reload", ""); }
    ErrorCode Enable(const std::string& unit) override {
        return Call(nullptr, "EnableUnitFiles", "asbb", 1, unit.c_str(), 0, 0);
    }
    ErrorCode Disable(const std::string& unit) override {
        return Call(nullptr, "DisableUnitFiles", "asb", 1, unit.c_str(), 0);
    }
    ErrorCode Stop(const std::string& unit) override {
        return Call(nullptr, "StopUnit", "ss", unit.c_str(), "replace");
    }
    ErrorCode ResetFailed(const std::string& unit) override {
        return Call(nullptr, "ResetFailedUnit", "s", unit.c_str());
    }
    CResult<std::string> LoadState(const std::string& unit) override { return Property(unit, "LoadState"); }
    CResult<std::string> ActiveState(const std::string& unit) override {
        return Property(unit, "ActiveState");
    }

 private:
    template <class... Arguments>
    ErrorCode Call(Message* answer, const char* method, const char* types, Arguments... arguments) {
        sd_bus_message* received = nullptr;
        const int result = ::sd_bus_call_method(m_bus.get(), kDestination, kManagerPath, kManager, method,
                                                nullptr, &received, types, arguments...);
        const Message owner(received);
        if (answer) answer->reset(::sd_bus_message_ref(received));
        return FromResult(result);
    }
    CResult<std::string> Property(const std::string& unit, const char* name);

    const std::unique_ptr<sd_bus, CReleaseBus> m_bus;
};

CResult<std::string> CSystemdBus::Property(const std::string& unit, const char* name) {
    Message answer;
    if (const ErrorCode error = Call(&answer, "LoadUnit", "s", unit.c_str()); error != ErrorCode::Success)
        return error;
    const char* path = nullptr;
    if (const int result = ::sd_bus_message_read(answer.get(), "o", &path); result < 0)
        return FromResult(result);
    char* value = nullptr;
    const int result =
        ::sd_bus_get_property_string(m_bus.get(), kDestination, path, kUnit, name, nullptr, &value);
    const std::unique_ptr<char, CReleaseText> owner(value);
    if (result < 0) return FromResult(result);
    return std::string(value);
}

}  // namespace

CResult<std::unique_ptr<ISystemdBus>> ConnectToSystemd() {
    sd_bus* bus = nullptr;
    if (::sd_booted() <= 0 || ::sd_bus_open_system(&bus) < 0) return ErrorCode::ServiceManagerUnavailable;
    ::sd_bus_set_method_call_timeout(bus, kTimeLimit);
    return std::unique_ptr<ISystemdBus>(std::make_unique<CSystemdBus>(bus));
}

}  // namespace quorbel
