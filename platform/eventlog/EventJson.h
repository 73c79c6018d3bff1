#pragma once

#include <cstdint>
#include <string>

#include "platform/eventlog/EventSink.h"
#include "platform/fault/FixedText.h"

namespace quorbel {

/// "2026-01-31T12:00:00.1234567Z".
std::string TimeText(std::uint64_t time);
/// "0xC00000C9".
std::string IdText(std::uint32_t id);
/// "success", "informational", "warning" or "error".
const char* SeverityName(EventSeverity severity) noexcept;

/// Last words as a line of JSON with its line end, without any allocation.
using CLastWordsText = CFixedText<16384>;
CLastWordsText ToJsonLine(const CLastWords& words) noexcept;

}  // namespace quorbel
