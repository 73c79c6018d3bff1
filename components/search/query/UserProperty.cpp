#include "components/search/query/UserProperty.h"

#include <algorithm>

#include "components/search/query/SearchDate.h"
#include "components/search/query/UserQuery.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

using Type = CUserProperty::Type;
using Condition = std::optional<std::wstring>;

constexpr CUserProperty kProperties[] = {
    {L"content", Type::Words, L"System.Search.Contents"},
    {L"text", Type::Words, L"System.Search.Contents", true},
    {L"title", Type::Words, L"System.Title", false, true},
    {L"author", Type::Words, L"System.Author", false, true},
    {L"from", Type::Words, L"System.Author", true, true},
    {L"by", Type::Words, L"System.Author", true, true},
    {L"name", Type::Words, L"System.FileName"},
    {L"filename", Type::Words, L"System.FileName"},
    {L"named", Type::Words, L"System.FileName", true},
    {L"called", Type::Words, L"System.FileName", true},
    {L"kind", Type::Kind, L"System.Kind"},
    {L"ext", Type::Extension, L"System.FileExtension"},
    {L"type", Type::Extension, L"System.FileExtension"},
    {L"size", Type::Size, L"System.Size"},
    {L"date", Type::Date, L"System.DateModified"},
    {L"modified", Type::Date, L"System.DateModified"},
};

/// Beside the index's own kinds, other names of them.
constexpr std::pair<std::wstring_view, std::wstring_view> kKinds[] = {
    {L"doc", L"document"}, {L"image", L"picture"}, {L"photo", L"picture"},
    {L"audio", L"music"},  {L"mail", L"email"},    {L"app", L"program"},
};

enum class Order { Equal, Less, LessOrEqual, Greater, GreaterOrEqual };

Order TakeOrder(std::wstring_view& value) noexcept {
    constexpr std::pair<std::wstring_view, Order> kOrders[] = {{L"<=", Order::LessOrEqual},
                                                               {L">=", Order::GreaterOrEqual},
                                                               {L"<", Order::Less},
                                                               {L">", Order::Greater},
                                                               {L"=", Order::Equal}};
    for (const auto& [text, order] : kOrders) {
        if (value.starts_with(text)) {
            value = Trim(value.substr(text.size()));
            return order;
        }
    }
    return Order::Equal;
}

/// Values of a property that lie from `begin` on and before `end`.
std::wstring Between(std::wstring_view column, const std::wstring& begin, const std::wstring& end) {
    std::wstring condition;
    if (!begin.empty()) condition = std::wstring(column) + L" >= " + begin;
    if (!begin.empty() && !end.empty()) condition += L" AND ";
    if (!end.empty()) condition += std::wstring(column) + L" < " + end;
    return begin.empty() || end.empty() ? condition : L"(" + condition + L")";
}

/// What a value covers, in a command's words: of a size one byte, of a date a day, month or year.
struct CSpan {
    std::wstring begin;
    std::wstring end;
};

std::optional<CSpan> DateSpan(std::wstring_view value) {
    const auto days = ParseDaySpan(value);
    if (!days) return std::nullopt;
    return CSpan{QuotedText(days->begin), QuotedText(days->end)};
}

std::optional<std::uint64_t> TakeUnit(std::wstring_view text) noexcept {
    constexpr std::wstring_view kUnits[] = {L"B", L"KB", L"MB", L"GB", L"TB"};
    if (text.empty()) return 1;
    std::uint64_t size = 1;
    for (const std::wstring_view unit : kUnits) {
        if (EqualNoCase(text, unit) || (text.size() == 1 && EqualNoCase(text, unit.substr(0, 1))))
            return size;
        size *= 1024;
    }
    return std::nullopt;
}

std::optional<CSpan> SizeSpan(std::wstring_view value) {
    constexpr std::uint64_t kMostWhole = 1'000'000'000'000;
    constexpr std::size_t kMostDigits = 6;  // behind the point
    const auto whole = TakeDecimal(value);
    std::uint64_t fraction = 0;
    std::uint64_t scale = 1;
    if (whole && (value.starts_with(L'.') || value.starts_with(L','))) {
        const std::wstring_view digits = value.substr(1);
        value.remove_prefix(1);
        const auto number = TakeDecimal(value);
        const std::size_t count = digits.size() - value.size();
        if (!number || count > kMostDigits) return std::nullopt;
        for (std::size_t digit = 0; digit != count; ++digit) scale *= 10;
        fraction = *number;
    }
    const auto unit = TakeUnit(Trim(value));
    if (!whole || *whole > kMostWhole || !unit) return std::nullopt;
    if (*unit > static_cast<std::uint64_t>(INT64_MAX) / 2 / (*whole + 1)) return std::nullopt;
    const std::uint64_t bytes = *whole * *unit + fraction * *unit / scale;
    return CSpan{std::to_wstring(bytes), std::to_wstring(bytes + 1)};
}

template <class SpanOf>
Condition Ordered(std::wstring_view column, std::wstring_view value, SpanOf&& spanOf) {
    const std::size_t dots = value.find(L"..");
    if (dots != std::wstring_view::npos) {
        const std::wstring_view first = Trim(value.substr(0, dots));
        const std::wstring_view last = Trim(value.substr(dots + 2));
        const auto begin = spanOf(first);
        const auto end = spanOf(last);
        if ((!begin && !first.empty()) || (!end && !last.empty()) || (!begin && !end)) return std::nullopt;
        return Between(column, begin ? begin->begin : L"", end ? end->end : L"");
    }
    const Order order = TakeOrder(value);
    const auto span = spanOf(value);
    if (!span) return std::nullopt;
    switch (order) {
        case Order::Less: return Between(column, L"", span->begin);
        case Order::LessOrEqual: return Between(column, L"", span->end);
        case Order::Greater: return Between(column, span->end, L"");
        case Order::GreaterOrEqual: return Between(column, span->begin, L"");
        case Order::Equal: break;
    }
    return Between(column, span->begin, span->end);
}

Condition KindCondition(std::wstring_view value) {
    std::wstring kind = FoldCase(value);
    if (kind.size() > 1 && kind.ends_with(L's')) kind.pop_back();
    const auto* const found = std::ranges::find(kKinds, kind, [](const auto& entry) { return entry.first; });
    if (found != std::end(kKinds)) kind = found->second;
    if (kind.empty()) return std::nullopt;
    return L"System.Kind = " + QuotedText(kind);
}

Condition ExtensionCondition(std::wstring_view value, bool isPrefix) {
    while (value.starts_with(L'.')) value.remove_prefix(1);
    if (value.empty()) return std::nullopt;
    if (!isPrefix) return L"System.FileExtension = " + QuotedText(L"." + std::wstring(value));
    std::wstring pattern = L".";
    for (const wchar_t character : value) {
        const bool isSpecial = std::wstring_view(L"%_[").find(character) != std::wstring_view::npos;
        pattern += isSpecial ? std::wstring{L'[', character, L']'} : std::wstring(1, character);
    }
    return L"System.FileExtension LIKE " + QuotedText(pattern + L"%");
}

}  // namespace

const CUserProperty* FindUserProperty(std::wstring_view name, SearchQuerySyntax syntax) noexcept {
    const auto* const found = std::ranges::find_if(kProperties, [&](const CUserProperty& property) {
        return EqualNoCase(property.name, name) &&
               (!property.isEveryday || syntax == SearchQuerySyntax::Natural);
    });
    return found == std::end(kProperties) ? nullptr : found;
}

std::optional<std::wstring> PropertyCondition(const CUserProperty& property, std::wstring_view value,
                                              bool isPrefix) {
    value = Trim(value);
    switch (property.type) {
        case Type::Kind: return KindCondition(value);
        case Type::Extension: return ExtensionCondition(value, isPrefix);
        case Type::Size: return Ordered(property.column, value, SizeSpan);
        case Type::Date: return Ordered(property.column, value, DateSpan);
        case Type::Words: break;
    }
    return std::nullopt;
}

}  // namespace quorbel
