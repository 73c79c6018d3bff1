#pragma once

#include <span>
#include <string_view>

#include "components/oledb/Rows.h"

namespace quorbel {

/// A property of documents, as commands name it.
struct CSearchProperty {
    /// Where a row's value of it comes from.
    enum class Source {
        Document,  ///< the tables of documents and folders
        Rank,      ///< how well the document matches the command's words
        Summary,   ///< the text around them
        Nothing    ///< it has words to look for and no value
    };
    /// What it is compared with.
    enum class Type { Text, Number, Date };

    std::wstring_view name;
    Source source;
    Type type;
    CSqlColumn::Type columnType;
    /// The value in SQL, over documents d and folders f; empty for other sources.
    std::string_view value;
    /// What comparisons and orders use; empty when there are none.
    std::string_view compared;
    /// Some documents have no value.
    bool mayBeMissing;
    /// The column of the full-text table in which its words are found; empty for none.
    std::string_view words;
};

/// All of them, in the order in which they are documented.
std::span<const CSearchProperty> SearchProperties() noexcept;
/// Found without regard to case; null for a name that is none.
const CSearchProperty* FindSearchProperty(std::wstring_view name) noexcept;

/// What surrounds each matched word in a summary: characters that do not show, which every answer can hold.
/// @{
inline constexpr wchar_t kHitBegin = 0x2068;
inline constexpr wchar_t kHitEnd = 0x2069;
/// @}

}  // namespace quorbel
