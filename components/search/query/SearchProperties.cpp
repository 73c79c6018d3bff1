#include "components/search/query/SearchProperties.h"

#include <algorithm>

#include "platform/Text.h"

namespace quorbel {

namespace {

using Property = CSearchProperty;
using Source = Property::Source;
using Type = Property::Type;
using Column = CSqlColumn::Type;

constexpr std::string_view kPath = "(f.path || '/' || d.name)";
constexpr std::string_view kUrl = "('file:' || f.path || '/' || d.name)";
constexpr std::string_view kFolder = "iif(f.path = '', '/', f.path)";
constexpr std::string_view kModified =
    "strftime('%Y-%m-%dT%H:%M:%SZ', (d.modified - (d.modified % 1000000000 + 1000000000) % 1000000000)"
    " / 1000000000, 'unixepoch')";

constexpr Property TextOf(std::wstring_view name, std::string_view value, bool mayBeMissing = false,
                          std::string_view words = {}) {
    return {name, Source::Document, Type::Text, Column::Text, value, value, mayBeMissing, words};
}

constexpr Property kProperties[] = {
    TextOf(L"System.ItemUrl", kUrl),
    TextOf(L"System.ItemPathDisplay", kPath),
    TextOf(L"System.ItemFolderPathDisplay", kFolder),
    TextOf(L"System.ItemName", "d.name", false, "name"),
    TextOf(L"System.ItemNameDisplay", "d.name", false, "name"),
    TextOf(L"System.FileName", "d.name", false, "name"),
    TextOf(L"System.FileExtension", "d.extension"),
    TextOf(L"System.ItemType", "d.extension"),
    TextOf(L"System.Kind", "d.kind"),
    TextOf(L"System.Title", "d.title", true, "title"),
    TextOf(L"System.Author", "d.author", true, "author"),
    {L"System.Size", Source::Document, Type::Number, Column::I8, "d.size", "d.size", false, {}},
    {L"System.DateModified", Source::Document, Type::Date, Column::Text, kModified, "d.modified", false, {}},
    {L"System.Search.Rank", Source::Rank, Type::Number, Column::I4, {}, {}, false, {}},
    {L"System.Search.AutoSummary", Source::Summary, Type::Text, Column::Text, {}, {}, true, {}},
    {L"System.Search.Contents", Source::Nothing, Type::Text, Column::Text, {}, {}, false, "content"},
};

}  // namespace

std::span<const CSearchProperty> SearchProperties() noexcept {
    return kProperties;
}

const CSearchProperty* FindSearchProperty(std::wstring_view name) noexcept {
    const auto* const found = std::ranges::find_if(
        kProperties, [&](const Property& property) { return EqualNoCase(property.name, name); });
    return found == std::end(kProperties) ? nullptr : found;
}

}  // namespace quorbel
