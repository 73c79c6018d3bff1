#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "LibService/ServiceLogger.h"
#include "LibService/Status.h"
#include "platform/Clock.h"
#include "platform/pipe/NamedPipe.h"

namespace quorbel {

/// Memory that the connections of one server share for what is larger than usual. Safe to use from any
/// thread.
class CSharedMemory {
 public:
    static constexpr std::size_t kMost = 64 << 20;  ///< bytes
    /// What every connection may hold without asking.
    static constexpr std::size_t kUsual = 64 << 10;

    /// A connection's share; what it took is given back at the end.
    class CShare {
     public:
        explicit CShare(CSharedMemory& memory) noexcept : m_memory(memory) {}
        ~CShare() { m_memory.m_taken -= m_taken; }
        CShare(const CShare&) = delete;
        CShare& operator=(const CShare&) = delete;
        /// Whether that many bytes in all may be held.
        bool MayHold(std::size_t bytes) noexcept;
        /// What was asked for last, at first what nobody asks for.
        std::size_t Asked() const noexcept { return m_asked; }

     private:
        CSharedMemory& m_memory;
        std::size_t m_taken = 0;
        std::size_t m_asked = CPipeConnection::kFirstBuffer;
    };

 private:
    std::atomic<std::size_t> m_taken = 0;
};

/// What the connections of a service's pipe have in common.
struct CServiceAPIContext {
    const CServiceLogger& trace;
    std::string administrators;  ///< name of a group; empty for none but the superuser
    CSharedMemory memory;
    std::atomic<int> connections = 0;
};

/// One client's connection. For one thread.
class CServiceAPIConnection {
 public:
    CServiceAPIConnection(std::shared_ptr<CServiceAPIContext> context, std::unique_ptr<CPipeConnection> pipe);
    virtual ~CServiceAPIConnection();
    CServiceAPIConnection(const CServiceAPIConnection&) = delete;
    CServiceAPIConnection& operator=(const CServiceAPIConnection&) = delete;

    /// Answers requests until the client leaves or sends what is no message, or `stop` is set; none of these
    /// is a failure.
    virtual CStatus Serve(CEvent& stop);

 private:
    using Bytes = std::vector<std::uint8_t>;
    struct CRequest;

    CStatus ServeOne(CSharedMemory::CShare& share, CEvent& stop);
    CStatus Answer(Bytes& message, CSharedMemory::CShare& share, CEvent& stop);
    CStatus Dispatch(CRequest& request, CSharedMemory::CShare& share, CEvent& stop);
    CStatus AnswerRecords(const CRequest& request, CSharedMemory::CShare& share, CEvent& stop);
    CResult<bool> AwaitRecord(std::uint64_t number, std::chrono::steady_clock::time_point end, CEvent& stop);
    CStatus AnswerName(CRequest& request, CEvent& stop);
    CStatus Reply(const CRequest& request, std::uint32_t status, std::span<const std::uint8_t> data,
                  std::size_t zeros, CEvent& stop);
    CStatus Ended(ErrorCode error);

    const std::shared_ptr<CServiceAPIContext> m_context;
    const std::unique_ptr<CPipeConnection> m_pipe;
    bool m_isDisconnected = false;
    std::optional<bool> m_isAdministrator;  // known from the first message on
};

/// The listener: takes connections and has each served by a work item of its own.
class CServiceAPIListener {
 public:
    static constexpr int kMostConnections = 1024;
    /// Of these, as many are for administrators only, so that nobody can keep them out.
    static constexpr int kReserved = 16;

    /// Has a connection served (CServiceAPIConnection::Serve).
    using Starter = std::function<CStatus(std::unique_ptr<CServiceAPIConnection>)>;

    /// `pipes` is the folder of the pipe; `trace` and `clock` outlive the connections.
    CServiceAPIListener(const std::filesystem::path& pipes, std::wstring_view serviceName,
                        std::string administrators, const CServiceLogger& trace, IClock& clock,
                        Starter starter);

    /// Listens until `stop` is set. A pipe that cannot be made and connections that cannot be taken are tried
    /// again; of failures in a row the first one is written to the event log.
    CStatus Run(CEvent& stop);

 private:
    CStatus Create(std::unique_ptr<CNamedPipe>& pipe) const;
    CStatus AcceptOne(CNamedPipe& pipe, CEvent& stop);
    CStatus Begin(std::unique_ptr<CPipeConnection> pipe);

    const std::filesystem::path m_pipes;
    const std::string m_name;
    IClock& m_clock;
    const Starter m_starter;
    const std::shared_ptr<CServiceAPIContext> m_context;
};

}  // namespace quorbel
