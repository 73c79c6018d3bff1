#include "components/provider/SqlArguments.h"

#include <algorithm>

namespace quorbel {

namespace {

constexpr std::size_t kMostSearched = 64;

}  // namespace

CSqlArguments::CSqlArguments(std::span<const CSqlArgument> arguments) : m_arguments(arguments) {
    if (arguments.size() <= kMostSearched) return;
    m_byName.reserve(arguments.size());
    for (const CSqlArgument& argument : arguments) m_byName.push_back(&argument);
    std::ranges::stable_sort(m_byName, {}, &CSqlArgument::name);
}

const VARIANT* CSqlArguments::Find(std::wstring_view name) const {
    if (m_byName.empty()) {
        const auto found = std::ranges::find(m_arguments, name, &CSqlArgument::name);
        return found == m_arguments.end() ? nullptr : &found->value;
    }
    const auto found = std::ranges::lower_bound(m_byName, name, {}, &CSqlArgument::name);
    return found == m_byName.end() || (*found)->name != name ? nullptr : &(*found)->value;
}

}  // namespace quorbel
