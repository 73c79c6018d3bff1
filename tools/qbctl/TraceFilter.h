#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "tools/qbctl/Arguments.h"

namespace quorbel {

/// A record as the trace commands show it.
struct CShownRecord {
    std::uint64_t number = 0;
    std::uint64_t time = 0;  ///< 100 ns units since 1601-01-01 UTC
    std::uint32_t id = 0;
    std::string object;
    std::vector<std::uint8_t> arguments;  ///< encoded
};

/// Which records are shown.
class CTraceFilter {
 public:
    /// The options that make a filter.
    static std::vector<COption> Options();
    /// The filter that the options make, or what is wrong with them.
    static std::variant<CTraceFilter, std::wstring> FromArguments(const CArguments& arguments);

    bool Passes(const CShownRecord& record) const;

 private:
    std::set<std::string> m_objects;  // empty: all, as for the identifiers
    std::set<std::uint32_t> m_identifiers;
    std::uint32_t m_leastSeverity = 0;
    std::optional<std::uint64_t> m_from;
    std::optional<std::uint64_t> m_to;
};

}  // namespace quorbel
