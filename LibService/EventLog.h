#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <string_view>

#include "LibService/Status.h"
#include "platform/Lock.h"
#include "platform/eventlog/EventSink.h"
#include "platform/fault/FixedText.h"
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
    /// Another place for the message module than beside the running program; an empty path undoes it. What
    /// was loaded is let go of.
    void SetModulePath(std::filesystem::path module);

    /// Loads the message module and registers the event source `name` with it under
    /// SYSTEM\CurrentControlSet\Services\EventLog. Steps done before a failure stay done.
    CStatus Register(std::wstring_view name, IKey& localMachine);

    /// Writes an entry with the error's insertion strings, trimmed, and, for an error or a warning, its
    /// source.
    void Report(const CError& error) noexcept;
    /// Writes an entry without an error object and so without a source, with as many strings as the
    /// identifier's text refers to, as they are.
    void ReportMessage(std::uint32_t messageId, std::initializer_list<std::wstring_view> inserts) noexcept;

    /// Writes 0xC0000067 with an ASCII text, when the process ends by a fault: neither allocates nor locks.
    void WriteLastWords(std::string_view text) noexcept;

    /// Path of the message module of a program: "Evt" before its file name, "dll" for its extension of three
    /// characters; without such an extension ".dll" is appended.
    static std::filesystem::path ModulePath(const std::filesystem::path& program);
    /// The message module, loaded on first use; null when it cannot be loaded (the next call tries again).
    std::shared_ptr<const CMessageModule> Module();

 private:
    CEventLog() = default;
    CResult<std::filesystem::path> FindModule();
    CResult<std::shared_ptr<const CMessageModule>> LoadModule();
    void Write(CEventEntry entry);

    // For the last words, written with the lock held and read without:
    std::atomic<IEventSink*> m_lastSink = nullptr;
    CFixedText<128> m_introduction;
    std::atomic<bool> m_hasIntroduction = false;

    CMutex m_lock{LockRank::EventLog};  // guards what follows
    std::shared_ptr<IEventSink> m_sink;
    std::filesystem::path m_modulePath;
    std::shared_ptr<const CMessageModule> m_module;
};

}  // namespace quorbel
