#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "LibService/api/ServiceApiClient.h"

namespace quorbel {

/// A record and the name of the object that wrote it; "?" when the service does not know it.
struct CNamedRecord {
    CServiceRecord record;
    std::string object;
};

/// Follows the records of a running service.
class CRecordFollower {
 public:
    /// Takes records in the order of their numbers; a failure ends the following with it.
    using Show = std::function<ErrorCode(const std::vector<CNamedRecord>& records)>;

    /// `client` and `stop` outlive the object.
    CRecordFollower(CServiceApiClient& client, CEvent& stop) noexcept : m_client(client), m_stop(stop) {}

    /// Shows the last `count` records, as far as they are still kept, and then what comes; Cancelled once
    /// `stop` is set, BrokenPipe when the service has ended.
    ErrorCode Follow(std::uint64_t count, const Show& show);

 private:
    ErrorCode AddName(CNamedRecord& record);

    CServiceApiClient& m_client;
    CEvent& m_stop;
    std::map<std::uint64_t, std::string> m_names;  // by key
};

}  // namespace quorbel
