#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "components/search/query/SearchCommand.h"

namespace quorbel {

/// What a command does to the index: one statement that gives the numbers and relevances (0 or NULL for none)
/// of its documents in their order, and one that gives the columns of a document. Nothing of the command
/// stands in the statements' texts but as an argument.
struct CSearchPlan {
    using Argument = std::variant<std::int64_t, std::string>;

    std::string search;
    std::vector<Argument> arguments;
    /// Its arguments are the document's number and `hits`; a column that is none of Document's is the
    /// number's place (Rank) or an excerpt of the index (Summary).
    std::string details;
    std::string hits;  ///< the words that a summary shows, FTS5
    std::vector<CSqlColumn> columns;
    std::vector<CSearchProperty::Source> sources;  ///< of each column
};

CSearchPlan PlanSearch(const CSearchCommand& command);

}  // namespace quorbel
