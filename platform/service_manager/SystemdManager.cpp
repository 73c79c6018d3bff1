#include "platform/service_manager/SystemdManager.h"

#include <atomic>
#include <mutex>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include "platform/Event.h"
#include "platform/Lock.h"
#include "platform/StopSignals.h"
#include "platform/Text.h"
#include "platform/Thread.h"
#include "platform/eventlog/EventSink.h"
#include "platform/service_manager/SystemdDatabase.h"

namespace quorbel {

namespace {

constexpr const char* kUnitFolder = "/etc/systemd/system";

class CSystemdManager final : public IServiceManager {
 public:
    struct Events {
        std::shared_ptr<CEvent> signalled;  ///< automatic: a signal asks for the stop
        std::shared_ptr<CEvent> reported;   ///< automatic: there is a new status
        std::shared_ptr<CEvent> ended;      ///< manual: the main routine has returned
    };

    explicit CSystemdManager(Events events) noexcept : m_events(std::move(events)) {}

    CResult<std::unique_ptr<IServiceDatabase>> OpenDatabase() override {
        auto bus = ConnectToSystemd();
        if (!bus.IsOk()) return bus.Error();
        if (::geteuid() != 0) return ErrorCode::AccessDenied;
        return std::unique_ptr<IServiceDatabase>(
            std::make_unique<CSystemdDatabase>(std::move(bus).Value(), kUnitFolder));
    }
    ErrorCode RunDispatcher(const TableEntry* table) override;
    ErrorCode RegisterHandler(const wchar_t* /*name*/, Handler handler) override {
        m_handler = handler;
        return ErrorCode::Success;
    }
    ErrorCode SetStatus(const CServiceStatus& status) override {
        m_acceptsStop = (status.accepted & kAcceptStop) != 0;
        const int sent = ::sd_notify(0, NotificationOf(status).c_str());
        m_events.reported->Set();
        return sent < 0 ? ErrorFromErrno(-sent) : ErrorCode::Success;
    }

 private:
    void DeliverStop() {
        if (const Handler handler = m_handler)
            Ignore(handler(static_cast<std::uint32_t>(ServiceControl::Stop), 0, nullptr));
    }
    void DeliverControlsUntilEnd();

    const Events m_events;
    std::atomic<Handler> m_handler = nullptr;
    std::atomic<bool> m_acceptsStop = false;
};

ErrorCode CSystemdManager::RunDispatcher(const TableEntry* table) {
    if (!StartedByServiceManager()) return ErrorCode::ServiceControllerConnectFailed;
    if (const ErrorCode error = SetOnStopSignals(m_events.signalled); error != ErrorCode::Success)
        return error;
    auto thread = StartThread("ServiceMain", [main = table->main, ended = m_events.ended] {
        main();
        ended->Set();
    });
    if (!thread.IsOk()) return thread.Error();
    DeliverControlsUntilEnd();
    std::thread(std::move(thread).Value()).join();
    return ErrorCode::Success;
}

void CSystemdManager::DeliverControlsUntilEnd() {
    bool isAsked = false;
    bool isDelivered = false;
    for (;;) {
        const auto woken =
            WaitForAny({m_events.ended.get(), m_events.signalled.get(), m_events.reported.get()});
        if (woken.IsOk() && woken.Value() == 0) return;
        if (woken.IsOk() && woken.Value() == 1) isAsked = true;
        // Who cannot hear of a stop any more has to end.
        if (!woken.IsOk() || (isAsked && !isDelivered && m_acceptsStop)) {
            isDelivered = true;
            DeliverStop();
        }
        if (!woken.IsOk()) return;
    }
}

}  // namespace

CResult<std::unique_ptr<IServiceManager>> CreateSystemdManager() {
    auto signalled = CEvent::Create(EventReset::Auto);
    if (!signalled.IsOk()) return signalled.Error();
    auto reported = CEvent::Create(EventReset::Auto);
    if (!reported.IsOk()) return reported.Error();
    auto ended = CEvent::Create(EventReset::Manual);
    if (!ended.IsOk()) return ended.Error();
    CSystemdManager::Events events{std::move(signalled).Value(), std::move(reported).Value(),
                                   std::move(ended).Value()};
    return std::unique_ptr<IServiceManager>(std::make_unique<CSystemdManager>(std::move(events)));
}

std::string NotificationOf(const CServiceStatus& status) {
    std::string text;
    switch (status.state) {
        case ServiceState::StartPending: text = "STATUS=Starting\n"; break;
        case ServiceState::Running: text = "READY=1\nSTATUS=Running\n"; break;
        case ServiceState::StopPending: text = "STOPPING=1\nSTATUS=Stopping\n"; break;
        case ServiceState::Stopped:
            text = "STOPPING=1\nSTATUS=Stopped";
            if (status.exitCode != 0) {
                text += " with error " + std::to_string(status.exitCode);
                if (const auto message = SystemMessage(status.exitCode)) text += ": " + ToUtf8(*message);
            }
            text += '\n';
            break;
    }
    if (status.waitHint != 0)
        text += "EXTEND_TIMEOUT_USEC=" + std::to_string(std::uint64_t{status.waitHint} * 1000) + "\n";
    return text;
}

}  // namespace quorbel
