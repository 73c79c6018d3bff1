#pragma once

#include <optional>
#include <string>
#include <vector>

#include "components/search/query/SearchPlan.h"

namespace quorbel {

/// The FTS5 expression of a condition on words that holds for no document without any of them; nothing for
/// other conditions.
std::optional<std::string> WordsExpression(const CCondition& condition);

/// The expression of what must all hold, as far as it is on words; those that it says nothing of are left
/// over. Nothing, and all are left over, when it would hold for documents without any of the words.
std::optional<std::string> AllWordsExpression(std::vector<const CCondition*>& conditions);

/// Adds the phrases that a document may be found by, each with a blank before.
void CollectHits(const CCondition& condition, std::string& hits);

/// Writes conditions in SQL. Its arguments are numbered as they come.
class CConditionSql {
 public:
    /// `id` is the SQL of the document's number, `folder` that of its folder's.
    CConditionSql(std::string id, std::string folder, std::vector<CSearchPlan::Argument>& arguments)
        : m_id(std::move(id)), m_folder(std::move(folder)), m_arguments(arguments) {}

    std::string Sql(const CCondition& condition);
    /// The same, fit to stand beside AND.
    std::string Operand(const CCondition& condition);
    /// A parameter with this argument.
    std::string Bind(CSearchPlan::Argument argument);
    /// The tables of documents and folders are used.
    bool UsesDocument() const noexcept { return m_usesDocument; }

 private:
    std::string Sql(const CAllOf& all);
    std::string Sql(const CAnyOf& any);
    std::string Sql(const CNot& negated);
    std::string Sql(const CWordsMatch& words);
    std::string Sql(const CInFolder& folder);
    std::string Sql(const CComparison& comparison);
    std::string Sql(const CLikeness& likeness);
    std::string Sql(const CMissing& missing);
    std::string Sql(const CEverything&) { return "1"; }
    std::string Sql(const CNothing&) { return "0"; }
    std::string Found(std::string expression);
    std::string Date(std::string_view column, CComparison::Operator comparison, std::int64_t seconds);

    const std::string m_id;
    const std::string m_folder;
    std::vector<CSearchPlan::Argument>& m_arguments;
    bool m_usesDocument = false;
};

}  // namespace quorbel
