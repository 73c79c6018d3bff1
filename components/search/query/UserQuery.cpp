#include "components/search/query/UserQuery.h"

#include <optional>

#include "platform/Text.h"

namespace quorbel {

namespace {

using Kind = CUserCondition::Kind;

/// The first words of a condition say where all of it looks.
const CUserCondition& FirstLeaf(const CUserCondition& condition) {
    return condition.parts.empty() ? condition : FirstLeaf(condition.parts.front());
}

template <class WriteOne>
std::wstring Join(const CUserCondition& condition, WriteOne&& one) {
    if (condition.kind == Kind::Not) return L"NOT " + one(condition.parts.front());
    std::wstring joined;
    for (const CUserCondition& part : condition.parts) {
        if (!joined.empty()) joined += condition.kind == Kind::All ? L" AND " : L" OR ";
        joined += one(part);
    }
    return joined;
}

bool IsList(const CUserCondition& condition) noexcept {
    return condition.kind == Kind::All || condition.kind == Kind::Any;
}

/// The text of a CONTAINS that says all of it; none when it says more than words in these columns.
std::optional<std::wstring> ContainsText(const CUserCondition& condition, const std::wstring& columns) {
    if (condition.kind == Kind::Words && condition.columns == columns) return condition.text;
    if (condition.parts.empty()) return std::nullopt;
    bool isWhole = true;
    std::wstring text = Join(condition, [&](const CUserCondition& part) {
        const auto inner = isWhole ? ContainsText(part, columns) : std::nullopt;
        isWhole = inner.has_value();
        if (!isWhole) return std::wstring();
        return IsList(part) ? L"(" + *inner + L")" : *inner;
    });
    return isWhole ? std::optional(std::move(text)) : std::nullopt;
}

}  // namespace

std::wstring QuotedText(std::wstring_view text) {
    return L"'" + DoubleApostrophes(text) + L"'";
}

std::wstring CommandText(const CUserCondition& condition) {
    const std::wstring& columns = FirstLeaf(condition).columns;
    if (const auto words = ContainsText(condition, columns)) {
        const bool areSeveral = columns.find(L',') != std::wstring::npos;
        const std::wstring where = areSeveral        ? L"(" + columns + L"), "
                                   : columns.empty() ? std::wstring()
                                                     : columns + L", ";
        return L"CONTAINS(" + where + QuotedText(*words) + L")";
    }
    if (condition.kind == Kind::Everything) return std::wstring(kEveryDocument);
    if (condition.kind == Kind::Property) return condition.text;
    return Join(condition, [](const CUserCondition& part) {
        const std::wstring inner = CommandText(part);
        return IsList(part) ? L"(" + inner + L")" : inner;
    });
}

}  // namespace quorbel
