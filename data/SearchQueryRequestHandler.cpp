#include "data/SearchQueryRequestHandler.h"

#include <filesystem>
#include <mutex>

#include "LibService/MessageIds.h"
#include "LibService/Status.h"
#include "components/search/SearchManager.h"
#include "data/SearchDescription.h"
#include "data/results/StreamQueryInfo.h"
#include "http/RequestHandlerFactory.h"
#include "platform/UrlPath.h"
#include "platform/com/ClassRegistry.h"
#include "platform/com/ErrorInfo.h"

namespace quorbel {

namespace {

using Results = CSQLRequestInstance::Response::Results;

constexpr wchar_t kCatalog[] = L"SystemIndex";
constexpr wchar_t kEverything[] = L"*";

/// A text that a component gives.
class CGivenText {
 public:
    CGivenText() = default;
    ~CGivenText() { CoTaskMemFree(m_text); }
    CGivenText(const CGivenText&) = delete;
    CGivenText& operator=(const CGivenText&) = delete;
    wchar_t** Receive() noexcept { return &m_text; }
    std::wstring Text() const { return m_text ? m_text : L""; }

 private:
    wchar_t* m_text = nullptr;
};

/// The process's search manager, made when it is needed first.
HRESULT TakeManager(CComPtr<ISearchManager>& manager) {
    static CMutex lock{LockRank::SearchManager};
    static CComPtr<ISearchManager> kept;
    const std::lock_guard guard(lock);
    if (!kept) {
        const HRESULT result = CreateComInstance(kSearchManagerClass, kept);
        if (!Succeeded(result)) return result;
    }
    manager = kept;
    return S_OK;
}

/// Decimal digits behind blanks and a sign, as far as they go; 0 for none.
std::int32_t LeadingNumber(std::wstring_view text) {
    while (!text.empty() && (text.front() == L' ' || (text.front() >= L'\t' && text.front() <= L'\r'))) {
        text.remove_prefix(1);
    }
    const bool isNegative = text.starts_with(L'-');
    if (isNegative || text.starts_with(L'+')) text.remove_prefix(1);
    constexpr std::uint64_t kMost = std::numeric_limits<std::int32_t>::max();
    const bool hasDigits = !text.empty() && text.front() >= L'0' && text.front() <= L'9';
    const auto number =
        static_cast<std::int32_t>(std::min(TakeDecimal(text).value_or(hasDigits ? kMost : 0), kMost));
    return isNegative ? -number : number;
}

SearchQuerySyntax SyntaxOf(std::wstring_view name) {
    if (EqualNoCase(name, L"ADVANCED")) return SearchQuerySyntax::Advanced;
    return EqualNoCase(name, L"NATURAL") ? SearchQuerySyntax::Natural : SearchQuerySyntax::None;
}

/// Calls the setter that an entry of the description stands for, if there is one.
HRESULT ApplyEntry(ISearchQueryHelper& helper, std::wstring_view name, const std::wstring& value) {
    if (EqualNoCase(name, L"CONTENTPROPERTIES")) return helper.put_QueryContentProperties(value.c_str());
    if (EqualNoCase(name, L"MAXRESULTS")) return helper.put_QueryMaxResults(LeadingNumber(value));
    if (EqualNoCase(name, L"SELECTCOLUMNS")) return helper.put_QuerySelectColumns(value.c_str());
    if (EqualNoCase(name, L"SORTING")) return helper.put_QuerySorting(value.c_str());
    if (EqualNoCase(name, L"SYNTAX")) return helper.put_QuerySyntax(SyntaxOf(value));
    return S_OK;
}

/// Leaves out rows that name a folder.
HRESULT SkipFolders(const CHTMLDataSource::ValueGetter& values) {
    constexpr std::wstring_view kFileScheme = L"file:";
    for (std::size_t ordinal = 1;; ++ordinal) {
        const wchar_t* const value = values(ordinal);
        if (!value) return S_OK;
        const std::wstring_view text = value;
        if (!text.starts_with(kFileScheme)) continue;
        std::error_code ignored;
        const auto status = std::filesystem::symlink_status(ToUtf8(text.substr(kFileScheme.size())), ignored);
        if (status.type() == std::filesystem::file_type::directory) return S_FALSE;
    }
}

TextMap QueryParameters(const web::http::http_request& request) {
    TextMap parameters;
    for (const auto& [name, value] : web::uri::split_query(request.relative_uri().query())) {
        parameters[FromUtf8(name)] = FromUtf8(PercentDecode(value).value_or(value));
    }
    return parameters;
}

}  // namespace

/// The state of one running search.
class CSearchQueryRequestHandler::Response final : public CSQLRequestInstance::Response {
 public:
    Response(const CSearchQueryRequestHandler& handler, const web::http::http_request& request,
             const TextMap& namedValues)
        : CSQLRequestInstance::Response(handler.queryFile, handler.m_shared),
          m_references{QueryParameters(request), namedValues} {}

    CHTMLDataSource::Rendering Rendering() const {
        return {CRowAccessor::VariantTyping::Text,
                [rewrites = m_rewrites](std::size_t, std::wstring_view value) {
                    return Rewrite(*rewrites, value);
                },
                SkipFolders};
    }

 private:
    void OpenQuery(Results::QueryInfo& query) override;
    CComPtr<ISearchQueryHelper> TakeHelper() const;
    void OpenIndex(Results::QueryInfo& query, ISearchQueryHelper& helper) const;
    CSearchDescription ParseDescription(const std::wstring& text) const;
    std::wstring MakeCommand(ISearchQueryHelper& helper, const CSearchDescription& description) const;
    void Require(HRESULT result, std::uint32_t messageId) const;

    const CReferences m_references;
    const std::shared_ptr<CRewriteTable> m_rewrites = std::make_shared<CRewriteTable>();
};

void CSearchQueryRequestHandler::Response::OpenQuery(Results::QueryInfo& query) {
    Ignore(TakeErrorInfo());  // of whoever had the thread before
    // No search has a value that would be a document by itself.
    if (dynamic_cast<Results::StreamQueryInfo*>(&query)) throw ToSystemError(E_NOTIMPL);
    const std::wstring text = ReadText();
    const CComPtr<ISearchQueryHelper> helper = TakeHelper();
    OpenIndex(query, *helper.Get());
    const CSearchDescription description = ParseDescription(text);
    const std::wstring command = MakeCommand(*helper.Get(), description);
    ReportFailures(query, command, message::kSearchFailed);
    const HRESULT result = query.Execute(command, IUnknown::kId, nullptr);
    if (!Succeeded(result)) query.Fail(result);
}

CComPtr<ISearchQueryHelper> CSearchQueryRequestHandler::Response::TakeHelper() const {
    CComPtr<ISearchManager> manager;
    Require(TakeManager(manager), message::kSearchUnavailable);
    CComPtr<ISearchCatalogManager> catalog;
    CComPtr<ISearchQueryHelper> helper;
    HRESULT result = manager->GetCatalog(kCatalog, catalog.Receive());
    if (Succeeded(result)) result = catalog->GetQueryHelper(helper.Receive());
    if (!Succeeded(result)) throw ToSystemError(result);
    return helper;
}

void CSearchQueryRequestHandler::Response::OpenIndex(Results::QueryInfo& query,
                                                     ISearchQueryHelper& helper) const {
    CGivenText initialisation;
    Require(helper.get_ConnectionString(initialisation.Receive()), message::kSearchHelperUnavailable);
    OpenSource(query, initialisation.Text(), message::kSearchSourceUnavailable);
}

CSearchDescription CSearchQueryRequestHandler::Response::ParseDescription(const std::wstring& text) const {
    auto description = CSearchDescription::Parse(text, m_references, *m_rewrites);
    if (!description.IsOk()) {
        SetErrorInfo(
            L"its scope names a folder that the host does not have, or a value of the request stands outside "
            L"of quotes "
            L"and is no plain number or name, or it leads out of a folder");
        Require(HResultFromWin32(ToNumber(description.Error())), message::kSearchDescriptionRefused);
    }
    return std::move(description).Value();
}

std::wstring CSearchQueryRequestHandler::Response::MakeCommand(ISearchQueryHelper& helper,
                                                               const CSearchDescription& description) const {
    const auto valueOf = [&description](std::wstring_view name) {
        const std::wstring* const value = description.Find(name);
        return value ? *value : L"";
    };
    description.ForEach([&](std::wstring_view name, const std::wstring& value) {
        Require(ApplyEntry(helper, name, value), message::kSearchDescriptionRefused);
    });
    std::wstring restrictions = valueOf(L"WHERERESTRICTIONS");
    if (restrictions.empty()) {
        const auto scope = description.Scope();
        if (!scope.IsOk()) throw ToSystemError(HResultFromWin32(ToNumber(scope.Error())));
        if (!scope.Value().empty()) restrictions = L"AND SCOPE = '" + DoubleApostrophes(scope.Value()) + L"'";
    }
    if (!restrictions.empty()) {
        Require(helper.put_QueryWhereRestrictions(restrictions.c_str()), message::kSearchDescriptionRefused);
    }
    if (std::wstring command = valueOf(L"COMMAND"); !command.empty()) return command;
    const std::wstring* const query = description.Find(L"QUERY");
    CGivenText command;
    Require(helper.GenerateSQLFromUserQuery(query ? query->c_str() : kEverything, command.Receive()),
            message::kSearchDescriptionRefused);
    return command.Text();
}

/// Throws for a failure, which is an error of this message (reason, description file).
void CSearchQueryRequestHandler::Response::Require(HRESULT result, std::uint32_t messageId) const {
    if (Succeeded(result)) return;
    m_shared->commands.Write(ReasonFor(result), [&](const std::wstring& reason) {
        MessageError(messageId, {reason, m_queryFile}).Report();
    });
    throw ToSystemError(result);
}

void CSearchQueryRequestHandler::Register(IClock& clock) {
    CRequestHandlerFactory::Register(L"SEARCH", [shared = std::make_shared<Shared>(clock)](
                                                    const std::wstring& folder, const std::wstring& file) {
        return std::make_shared<CSearchQueryRequestHandler>(folder, file, shared);
    });
}

std::shared_ptr<CHTTPServer::CRequestHandler::CResponse> CSearchQueryRequestHandler::CreateResponse(
    const web::http::http_request& request, const UserIdentity&, const TextMap& parameters) {
    const auto response = std::make_shared<Response>(*this, request, parameters);
    response->Start(root, request, response->Rendering());
    return response;
}

}  // namespace quorbel
