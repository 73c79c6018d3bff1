#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "components/search/SearchManager.h"

namespace quorbel {

/// A property as users name it.
struct CUserProperty {
    enum class Type { Words, Kind, Extension, Size, Date };
    std::wstring_view name;  ///< what stands before the ":"
    Type type;
    std::wstring_view column;  ///< of the command
    bool isEveryday = false;   ///< understood in the natural syntax only
    bool mayBeMissing = false;
};

/// Found without regard to case; null for a name that is none in this syntax.
const CUserProperty* FindUserProperty(std::wstring_view name, SearchQuerySyntax syntax) noexcept;

/// The condition that a value of Kind, Extension, Size or Date stands for, as a command has it; none for a
/// value that makes no sense. `isPrefix`: a "*" followed it.
std::optional<std::wstring> PropertyCondition(const CUserProperty& property, std::wstring_view value,
                                              bool isPrefix);

}  // namespace quorbel
