#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "LibService/Status.h"
#include "platform/eventlog/EventSink.h"
#include "platform/messages/MessageModule.h"
#include "platform/registry/Key.h"

namespace quorbel {

/// The service's event log: errors and messages by identifier and insertion strings; their texts stand in the
/// message module beside the program. One instance per process; reports may come from any thread and never
/// fail visibly. Set up (SetSink, Register) happens before other threads run.
class CEventLog {
 public:
    static CEventLog& Instance();

    /// Where entries go; until then they are dropped.
    void SetSink(std::shared_ptr<IEventSink> sink);

    /// Loads the message module and registers the event source `name` with it under
    /// SYSTEM\CurrentControlSet\Services\EventLog. Steps done before a failure stay done.
    CStatus Register(std::wstring_view name, IKey& localMachine);

    void Report(const CError& error) noexcept;
    /// Writes an entry without an error object, with as many strings as the identifier's text refers to.
    void ReportMessage(std::uint32_t messageId, std::initializer_list<std::wstring_view> inserts) noexcept;

    /// Path of the message module of a program: "Evt" before its file name, "dll" for its extension.
    static std::filesystem::path ModulePath(const std::filesystem::path& program);
    /// The message module, loaded on first use; null when it cannot be loaded.
    std::shared_ptr<const CMessageModule> Module();

 private:
    CEventLog() = default;
    void Write(std::uint32_t messageId, std::vector<std::wstring> strings, std::string source,
               std::uint32_t line) noexcept;

    static constexpr std::uint32_t kTypeFilter = 0x0F;
    CMutex m_lock{LockRank::EventLog};              // guards what follows
    std::shared_ptr<IEventSink> m_sink;
    std::shared_ptr<const CMessageModule> m_module;
};

}  // namespace quorbel
