#include "components/search/query/ConditionSql.h"

#include <algorithm>
#include <limits>

namespace quorbel {

namespace {

/// Words and phrases that a summary looks for.
constexpr std::ptrdiff_t kMostHits = 16;

using Operator = CComparison::Operator;

template <class... Functions>
struct COverloaded : Functions... {
    using Functions::operator()...;
};

std::string_view OperatorText(Operator comparison) noexcept {
    switch (comparison) {
        case Operator::Equal: return " = ";
        case Operator::NotEqual: return " <> ";
        case Operator::Less: return " < ";
        case Operator::LessOrEqual: return " <= ";
        case Operator::Greater: return " > ";
        case Operator::GreaterOrEqual: return " >= ";
    }
    return " = ";
}

/// The first nanosecond of a second, or the nearest that there is.
std::int64_t FirstNanosecond(std::int64_t second) noexcept {
    constexpr std::int64_t kNanoseconds = 1'000'000'000;
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max() / kNanoseconds;
    if (second > kMost) return std::numeric_limits<std::int64_t>::max();
    if (second < -kMost) return std::numeric_limits<std::int64_t>::min();
    return second * kNanoseconds;
}

/// Nested parentheses are dear in the parsers of SQLite: there are none but where an operator needs them.
bool IsAny(const CCondition& condition) noexcept {
    return std::holds_alternative<CAnyOf>(condition.what);
}
bool IsList(const CCondition& condition) noexcept {
    return IsAny(condition) || std::holds_alternative<CAllOf>(condition.what);
}
std::string Grouped(bool isGrouped, std::string text) {
    return isGrouped ? "(" + text + ")" : text;
}

std::optional<std::string> AnyExpression(const CAnyOf& any) {
    std::string joined;
    for (const CCondition& part : any.parts) {
        const auto expression = WordsExpression(part);
        if (!expression) return std::nullopt;
        joined += (joined.empty() ? "" : " OR ") + *expression;
    }
    return joined;
}

}  // namespace

std::optional<std::string> AllWordsExpression(std::vector<const CCondition*>& conditions) {
    std::string found;
    std::string excluded;
    std::vector<const CCondition*> others;
    for (const CCondition* const condition : conditions) {
        const auto* const negated = std::get_if<CNot>(&condition->what);
        const CCondition& words = negated ? negated->part.front() : *condition;
        auto expression = WordsExpression(words);
        if (!expression) {
            others.push_back(condition);
        } else if (negated) {
            excluded += " NOT " + Grouped(IsList(words), std::move(*expression));
        } else {
            found += (found.empty() ? "" : " AND ") + Grouped(IsAny(words), std::move(*expression));
        }
    }
    if (found.empty()) return std::nullopt;
    conditions = std::move(others);
    return found + excluded;
}

std::optional<std::string> WordsExpression(const CCondition& condition) {
    return std::visit(COverloaded{[](const CWordsMatch& words) -> std::optional<std::string> {
                                      return words.columns.empty()
                                                 ? words.phrase
                                                 : "{" + words.columns + "} : " + words.phrase;
                                  },
                                  [](const CAllOf& all) {
                                      std::vector<const CCondition*> parts;
                                      for (const CCondition& part : all.parts) parts.push_back(&part);
                                      auto expression = AllWordsExpression(parts);
                                      return parts.empty() ? std::move(expression) : std::nullopt;
                                  },
                                  [](const CAnyOf& any) { return AnyExpression(any); },
                                  [](const auto&) -> std::optional<std::string> { return std::nullopt; }},
                      condition.what);
}

void CollectHits(const CCondition& condition, std::string& hits) {
    const auto collect = [&](const std::vector<CCondition>& parts) {
        for (const CCondition& part : parts) CollectHits(part, hits);
    };
    const auto add = [&hits](const std::string& phrase) {
        const std::string hit = " " + phrase;
        const bool isNew = hits.find(hit) == hits.npos;
        if (isNew && std::ranges::count(hits, '"') < kMostHits * 2) hits += hit;
    };
    std::visit(COverloaded{[&](const CWordsMatch& words) { add(words.phrase); },
                           [&](const CAllOf& all) { collect(all.parts); },
                           [&](const CAnyOf& any) { collect(any.parts); }, [](const auto&) {}},
               condition.what);
}

std::string CConditionSql::Sql(const CCondition& condition) {
    if (auto expression = WordsExpression(condition)) return Found(std::move(*expression));
    return std::visit([this](const auto& what) { return Sql(what); }, condition.what);
}

std::string CConditionSql::Bind(CSearchPlan::Argument argument) {
    m_arguments.push_back(std::move(argument));
    return "?" + std::to_string(m_arguments.size());
}

std::string CConditionSql::Operand(const CCondition& condition) {
    return Grouped(IsAny(condition), Sql(condition));
}

std::string CConditionSql::Sql(const CAllOf& all) {
    std::string joined;
    for (const CCondition& part : all.parts) joined += (joined.empty() ? "" : " AND ") + Operand(part);
    return joined;
}

std::string CConditionSql::Sql(const CAnyOf& any) {
    std::string joined;
    for (const CCondition& part : any.parts) joined += (joined.empty() ? "" : " OR ") + Sql(part);
    return joined;
}

std::string CConditionSql::Sql(const CNot& negated) {
    return "NOT (" + Sql(negated.part.front()) + ")";
}

std::string CConditionSql::Sql(const CWordsMatch& words) {
    return Found(words.columns.empty() ? words.phrase : "{" + words.columns + "} : " + words.phrase);
}

std::string CConditionSql::Found(std::string expression) {
    return m_id + " IN (SELECT rowid FROM words WHERE words MATCH " + Bind(std::move(expression)) + ")";
}

std::string CConditionSql::Sql(const CInFolder& folder) {
    const bool isBelow = folder.depth == CInFolder::Depth::Below;
    if (isBelow && folder.path.empty()) return "1";
    if (isBelow) return "is_below(" + m_folder + ", " + Bind(folder.path) + ")";
    return m_folder + " IN (SELECT id FROM folders WHERE path = " + Bind(folder.path) + ")";
}

std::string CConditionSql::Sql(const CComparison& comparison) {
    m_usesDocument = true;
    const std::string_view column = comparison.property->compared;
    if (const auto* const text = std::get_if<std::string>(&comparison.with)) {
        return std::string(column) + " COLLATE FOLDED" + std::string(OperatorText(comparison.comparison)) +
               Bind(*text);
    }
    const std::int64_t number = std::get<std::int64_t>(comparison.with);
    if (comparison.property->type == CSearchProperty::Type::Date) {
        return Date(column, comparison.comparison, number);
    }
    return std::string(column) + std::string(OperatorText(comparison.comparison)) + Bind(number);
}

std::string CConditionSql::Date(std::string_view column, Operator comparison, std::int64_t seconds) {
    // A document's time is finer: it counts as the second that it lies in.
    const auto isBefore = [&](std::int64_t second) {
        return std::string(column) + " < " + Bind(FirstNanosecond(second));
    };
    const auto isInOrBehind = [&](std::int64_t second) {
        return std::string(column) + " >= " + Bind(FirstNanosecond(second));
    };
    switch (comparison) {
        case Operator::Less: return isBefore(seconds);
        case Operator::LessOrEqual: return isBefore(seconds + 1);
        case Operator::Greater: return isInOrBehind(seconds + 1);
        case Operator::GreaterOrEqual: return isInOrBehind(seconds);
        case Operator::Equal: return "(" + isInOrBehind(seconds) + " AND " + isBefore(seconds + 1) + ")";
        case Operator::NotEqual: break;
    }
    return "(" + isBefore(seconds) + " OR " + isInOrBehind(seconds + 1) + ")";
}

std::string CConditionSql::Sql(const CLikeness& likeness) {
    m_usesDocument = true;
    return "is_like(" + std::string(likeness.property->compared) + ", " + Bind(likeness.pattern) + ")";
}

std::string CConditionSql::Sql(const CMissing& missing) {
    m_usesDocument = true;
    return std::string(missing.property->compared) + " IS NULL";
}

}  // namespace quorbel
