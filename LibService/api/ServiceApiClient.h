#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/Event.h"

namespace quorbel {

class CPipeConnection;

/// A trace record as the service gives it to its clients.
struct CServiceRecord {
    std::uint64_t number = 0;
    std::uint64_t time = 0;  ///< 100 ns units since 1601-01-01 UTC
    std::uint32_t id = 0;
    std::uint64_t object = 0;             ///< key of the object that wrote it
    std::vector<std::uint8_t> arguments;  ///< encoded (trace/TraceArguments.h)
};

/// What one request for records brought.
struct CServiceRecords {
    std::vector<CServiceRecord> records;  ///< in the order of their numbers; may be empty
    std::uint64_t next = 0;               ///< the number that the service's next record will get
};

/// A local client of a running service: reads its most recent trace records as they come. For one thread at a
/// time. After a failure other than NotFound the connection is of no use any more.
class CServiceApiClient {
 public:
    /// Errors: FileNotFound or ConnectionRefused when no service of that name runs under the root folder.
    static CResult<std::unique_ptr<CServiceApiClient>> Connect(const std::filesystem::path& root,
                                                               std::wstring_view serviceName);
    /// A client of whatever answers at the other end of the connection.
    static std::unique_ptr<CServiceApiClient> Over(std::unique_ptr<CPipeConnection> pipe);
    virtual ~CServiceApiClient() = default;

    /// The records from number `first` on that are still kept, waiting up to `wait` while there is none, as
    /// many as an answer holds. Cancelled when `stop` is set first, BrokenPipe when the service is gone.
    virtual CResult<CServiceRecords> ReadRecords(std::uint64_t first, std::chrono::milliseconds wait,
                                                 CEvent& stop) = 0;
    /// The name of the object with that key, at most 16 characters; NotFound when there is none.
    virtual CResult<std::string> ObjectName(std::uint64_t key, CEvent& stop) = 0;
};

}  // namespace quorbel
