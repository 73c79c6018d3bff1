#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "components/search/query/SearchProperties.h"

namespace quorbel {

struct CCondition;

/// Every document, and none.
struct CEverything {};
struct CNothing {};
/// What holds when all, or any, of its parts hold; there are at least two.
struct CAllOf {
    std::vector<CCondition> parts;
};
struct CAnyOf {
    std::vector<CCondition> parts;
};
/// The opposite of its one part.
struct CNot {
    std::vector<CCondition> part;
};
/// A word, phrase or group of near words.
struct CWordsMatch {
    std::string columns;  ///< of the full-text table, separated by blanks; empty for all
    std::string phrase;   ///< FTS5, made of quoted words only
};
/// The document lies directly in a folder, or anywhere below it.
struct CInFolder {
    enum class Depth { Directly, Below };
    std::string path;  ///< absolute, UTF-8, without last "/"; empty for the root
    Depth depth;
};
/// A value is compared with a number (seconds since 1970 for a date) or a text in UTF-8.
struct CComparison {
    enum class Operator { Equal, NotEqual, Less, LessOrEqual, Greater, GreaterOrEqual };
    const CSearchProperty* property;
    Operator comparison;
    std::variant<std::int64_t, std::string> with;
};
/// A text looks like a pattern, see LikePattern.h.
struct CLikeness {
    const CSearchProperty* property;
    std::string pattern;
};
struct CMissing {
    const CSearchProperty* property;
};

struct CCondition {
    std::variant<CEverything, CNothing, CAllOf, CAnyOf, CNot, CWordsMatch, CInFolder, CComparison, CLikeness,
                 CMissing>
        what;
};

/// A command for the index, parsed.
struct CSearchCommand {
    struct CColumn {
        std::wstring name;  ///< as the command writes it
        const CSearchProperty* property;
    };
    struct CSortKey {
        const CSearchProperty* property;
        bool isDescending;
    };
    std::optional<std::uint32_t> top;
    std::vector<CColumn> columns;
    CCondition where{CEverything()};
    std::vector<CSortKey> order;
};

/// What is wrong with a text, and at which of its characters, counted from 1.
struct CSyntaxError {
    std::wstring what;
    std::size_t position;

    /// One English sentence.
    std::wstring Text() const { return what + L" (character " + std::to_wstring(position) + L")."; }
};

}  // namespace quorbel
