#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "components/provider/SqlCommand.h"

namespace quorbel {

/// An execution's arguments, found by name. Refers to them.
class CSqlArguments {
 public:
    explicit CSqlArguments(std::span<const CSqlArgument> arguments);
    /// The first of this name; null when there is none.
    const VARIANT* Find(std::wstring_view name) const;

 private:
    const std::span<const CSqlArgument> m_arguments;
    std::vector<const CSqlArgument*> m_byName;  // only of so many that a search through all takes longer
};

}  // namespace quorbel
