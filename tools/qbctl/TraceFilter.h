#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "LibService/trace/TraceFileReader.h"
#include "tools/qbctl/Arguments.h"

namespace quorbel {

/// Which records are shown.
class CTraceFilter {
 public:
    /// The options that make a filter.
    static std::vector<COption> Options();
    /// The filter that the options make, or what is wrong with them.
    static std::variant<CTraceFilter, std::wstring> FromArguments(const CArguments& arguments);

    bool Passes(const CTraceFileRecord& record) const;

 private:
    std::set<std::string> m_objects;  // empty: all, as for the identifiers
    std::set<std::uint32_t> m_identifiers;
    std::uint32_t m_leastSeverity = 0;
    std::optional<std::uint64_t> m_from;
    std::optional<std::uint64_t> m_to;
};

}  // namespace quorbel
