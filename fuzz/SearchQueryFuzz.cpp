#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "components/search/query/CommandParser.h"
#include "components/search/query/QueryHelper.h"
#include "components/search/query/SearchPlan.h"
#include "platform/Error.h"
#include "platform/Text.h"
#include "platform/com/Variant.h"

using namespace quorbel;

namespace {

/// Every document that a command finds lies in the scope that was asked for.
bool KeepsScope(const CSearchCommand& command) {
    const auto* const all = std::get_if<CAllOf>(&command.where.what);
    const auto* const scope = all ? std::get_if<CInFolder>(&all->parts.back().what) : nullptr;
    return scope && all->parts.size() == 2 && scope->depth == CInFolder::Depth::Below &&
           scope->path == "/srv/docs";
}

void Check(ISearchQueryHelper& helper, const wchar_t* query) {
    wchar_t* text = nullptr;
    if (!Succeeded(helper.GenerateSQLFromUserQuery(query, &text))) return;
    const auto parsed = ParseSearchCommand(text);
    const auto* const command = std::get_if<CSearchCommand>(&parsed);
    if (!command || !KeepsScope(*command)) std::abort();
    CoTaskMemFree(text);
    Ignore(PlanSearch(*command));
}

}  // namespace

/// Any text as a user's query, as each of the settings that may come from a request, and as a command: a
/// command that the helper makes can be read and keeps to its scope.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::wstring text = FromUtf8({reinterpret_cast<const char*>(data), size});
    const auto parsed = ParseSearchCommand(text);
    if (const auto* const command = std::get_if<CSearchCommand>(&parsed)) Ignore(PlanSearch(*command));

    const CComPtr<CSearchQueryHelper> helper(new CSearchQueryHelper);
    if (!Succeeded(helper->put_QueryWhereRestrictions(L"AND SCOPE = 'file:/srv/docs'"))) std::abort();
    for (const auto syntax :
         {SearchQuerySyntax::None, SearchQuerySyntax::Natural, SearchQuerySyntax::Advanced}) {
        if (!Succeeded(helper->put_QuerySyntax(syntax))) std::abort();
        Check(*helper.Get(), text.c_str());
    }
    Ignore(helper->put_QueryContentProperties(text.c_str()));
    Check(*helper.Get(), text.c_str());
    Ignore(helper->put_QuerySelectColumns(text.c_str()));
    Ignore(helper->put_QuerySorting(text.c_str()));
    Check(*helper.Get(), L"fox");
    return 0;
}
