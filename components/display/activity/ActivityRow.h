#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "LibService/api/ServiceApiClient.h"
#include "LibService/trace/TraceText.h"

namespace quorbel {

/// How serious a record is: the top two bits of its identifier.
enum class ActivitySeverity : std::uint8_t { Success, Informational, Warning, Error };

ActivitySeverity SeverityOf(std::uint32_t id) noexcept;
/// "Success", "Information", "Warning", "Error".
const char* NameOf(ActivitySeverity severity) noexcept;

/// A trace record as the display shows it. Texts are UTF-8 on one line, without control characters.
struct CActivityRow {
    std::uint64_t number = 0;
    std::uint64_t time = 0;  ///< 100 ns units since 1601-01-01 UTC
    std::uint32_t id = 0;
    std::uint64_t objectKey = 0;
    std::string object;  ///< its name; empty when the service does not know it (any more)
    std::string text;
    std::vector<std::uint8_t> arguments;  ///< encoded

    ActivitySeverity Severity() const noexcept { return SeverityOf(id); }
    /// About what it takes in memory.
    std::size_t Bytes() const noexcept;
};

/// What the record says. One whose identifier has no text shows its identifier and arguments instead;
/// arguments that cannot be read are left out.
CActivityRow MakeRow(CServiceRecord record, std::string_view object, const CTraceTexts& texts);

/// Local time of day with milliseconds, "14:03:07.250".
std::string TimeOfDay(std::uint64_t time);
/// The record with all its fields, a line each.
std::string Details(const CActivityRow& row);

}  // namespace quorbel
