#pragma once

#include <optional>
#include <string_view>
#include <variant>

#include "components/search/query/CommandLexer.h"
#include "components/search/query/SearchCommand.h"
#include "components/search/query/WordsParser.h"

namespace quorbel {

/// Reads commands: SELECT [TOP n] columns FROM SystemIndex [WHERE condition] [ORDER BY columns], as
/// docs/search-queries.md describes them.
std::variant<CSearchCommand, CSyntaxError> ParseSearchCommand(std::wstring_view text);

/// What is wrong with a text that is to follow a condition in parentheses: it begins with AND or OR, and is
/// nothing but a condition.
std::optional<CSyntaxError> CheckRestriction(std::wstring_view text);

/// What is wrong with a text that is to follow ORDER BY.
std::optional<CSyntaxError> CheckSorting(std::wstring_view text);

}  // namespace quorbel
