#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quorbel {

/// A part of what a user asks for.
struct CUserCondition {
    enum class Kind {
        Everything,
        Words,     ///< a word or phrase
        Property,  ///< a condition on another property
        All,       ///< of the parts, at least two
        Any,
        Not  ///< the one part
    };
    Kind kind = Kind::Everything;
    std::wstring columns =
        {};                  ///< of Words: those in which it is looked for, separated by ", "; empty for all
    std::wstring text = {};  ///< Words: as CONTAINS has it. Property: as a command has it
    std::vector<CUserCondition> parts = {};
};

/// A condition as a command has it.
std::wstring CommandText(const CUserCondition& condition);

/// A text in single quotes.
std::wstring QuotedText(std::wstring_view text);

/// Conditions that hold for every document, and for none.
/// @{
inline constexpr std::wstring_view kEveryDocument = L"System.ItemUrl IS NOT NULL";
inline constexpr std::wstring_view kNoDocumentMatches = L"System.ItemUrl IS NULL";
/// @}

}  // namespace quorbel
