#pragma once

#include <cstdint>
#include <string>

#include "platform/eventlog/EventSink.h"

namespace quorbel {

/// "2026-01-31T12:00:00.1234567Z".
std::string TimeText(std::uint64_t time);
/// "0xC00000C9".
std::string IdText(std::uint32_t id);
/// "success", "informational", "warning" or "error".
const char* SeverityName(EventSeverity severity) noexcept;

}  // namespace quorbel
