#include "components/search/query/SearchPlan.h"

#include <algorithm>

#include "components/search/query/ConditionSql.h"

namespace quorbel {

namespace {

using Source = CSearchProperty::Source;

constexpr std::string_view kSummary = "excerpt(d.id, ?2, 280)";

/// What all must hold of a condition.
std::vector<const CCondition*> Conjuncts(const CCondition& where) {
    std::vector<const CCondition*> found;
    const auto add = [&](auto& self, const CCondition& condition) -> void {
        if (const auto* const all = std::get_if<CAllOf>(&condition.what)) {
            for (const CCondition& part : all->parts) self(self, part);
        } else {
            found.push_back(&condition);
        }
    };
    add(add, where);
    return found;
}

std::string OrderSql(const CSearchCommand& command, std::string_view rank, std::string_view last) {
    std::string order;
    for (const CSearchCommand::CSortKey& key : command.order) {
        if (key.property->source == Source::Rank && rank.empty()) continue;
        order +=
            key.property->source == Source::Rank ? std::string(rank) : std::string(key.property->compared);
        if (key.property->source != Source::Rank && key.property->type == CSearchProperty::Type::Text) {
            order += " COLLATE FOLDED";
        }
        order += key.isDescending ? " DESC, " : ", ";
    }
    if (command.order.empty() && !rank.empty()) order += std::string(rank) + " DESC, ";
    return " ORDER BY " + order + std::string(last);
}

bool UsesDocument(const CSearchCommand::CSortKey& key) noexcept {
    return key.property->source != Source::Rank;
}

/// Goes through the documents that have the words.
void SearchWords(const CSearchCommand& command, const std::string& expression,
                 const std::vector<const CCondition*>& others, CSearchPlan& plan) {
    CConditionSql sql("words.rowid", "folder_of(words.rowid)", plan.arguments);
    std::string where = " WHERE words MATCH " + sql.Bind(expression);
    for (const CCondition* const condition : others) where += " AND " + sql.Operand(*condition);
    const bool usesDocument = sql.UsesDocument() || std::ranges::any_of(command.order, UsesDocument);
    plan.search = "SELECT words.rowid, relevance(words) AS relevance FROM words";
    if (usesDocument) {
        plan.search +=
            " CROSS JOIN documents d ON d.id = words.rowid CROSS JOIN folders f ON f.id = d.folder";
    }
    plan.search += where + OrderSql(command, "relevance", "words.rowid");
    if (command.top) plan.search += " LIMIT " + sql.Bind(std::int64_t{*command.top});
}

/// Goes through all documents in the order of their folders, or those below one folder.
void SearchAll(const CSearchCommand& command, const std::vector<const CCondition*>& conjuncts,
               CSearchPlan& plan) {
    CConditionSql sql("d.id", "d.folder", plan.arguments);
    std::string where;
    for (const CCondition* const condition : conjuncts) {
        where += where.empty() ? " WHERE " : " AND ";
        const auto* const folder = std::get_if<CInFolder>(&condition->what);
        if (folder && folder->depth == CInFolder::Depth::Below && !folder->path.empty()) {
            // A range of the folders' index, which keeps their order.
            where += "f.path >= " + sql.Bind(folder->path) + " AND f.path < " + sql.Bind(folder->path + "0");
            where += " AND (f.path = " + sql.Bind(folder->path);
            where += " OR f.path > " + sql.Bind(folder->path + "/") + ")";
        } else {
            where += sql.Operand(*condition);
        }
    }
    plan.search = "SELECT d.id, NULL FROM folders f CROSS JOIN documents d ON d.folder = f.id" + where +
                  OrderSql(command, {}, "f.path, d.name");
    if (command.top) plan.search += " LIMIT " + sql.Bind(std::int64_t{*command.top});
}

void DescribeColumns(const CSearchCommand& command, CSearchPlan& plan) {
    std::string columns;
    for (const CSearchCommand::CColumn& column : command.columns) {
        plan.columns.push_back({column.name, column.property->columnType});
        plan.sources.push_back(column.property->source);
        columns += columns.empty() ? "" : ", ";
        switch (column.property->source) {
            case Source::Document: columns += column.property->value; break;
            case Source::Summary: columns += kSummary; break;
            case Source::Rank:
            case Source::Nothing: columns += "NULL"; break;
        }
    }
    plan.details =
        "SELECT " + columns + " FROM documents d CROSS JOIN folders f ON f.id = d.folder WHERE d.id = ?1";
}

}  // namespace

CSearchPlan PlanSearch(const CSearchCommand& command) {
    CSearchPlan plan;
    std::vector<const CCondition*> conjuncts = Conjuncts(command.where);
    if (const auto words = AllWordsExpression(conjuncts)) {
        SearchWords(command, *words, conjuncts, plan);
    } else {
        SearchAll(command, conjuncts, plan);
    }
    CollectHits(command.where, plan.hits);
    DescribeColumns(command, plan);
    return plan;
}

}  // namespace quorbel
