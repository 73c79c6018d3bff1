#include "data/SQLRequestHandler.h"

#include <array>

#include "LibService/MessageIds.h"
#include "LibService/Status.h"
#include "components/provider/ResultValues.h"
#include "data/QueryFile.h"
#include "http/RequestHandlerFactory.h"
#include "platform/UrlPath.h"
#include "platform/Waiting.h"
#include "platform/com/ErrorInfo.h"
#include "platform/fault/Faults.h"

namespace quorbel {

namespace {

using web::http::status_codes;

constexpr const wchar_t* kInitialisation = L"Provider=Quorbel.OLEDBProvider";
/// The event log takes so many characters of a command.
constexpr std::size_t kLongestCommand = 4096;
/// And of a reason, which may repeat what a client has sent.
constexpr std::size_t kLongestReason = 1000;

std::uint16_t StatusOf(ErrorCode code) {
    switch (code) {
        case ErrorCode::FileNotFound:
        case ErrorCode::PathNotFound:
        case ErrorCode::NotFound: return status_codes::NotFound;
        case ErrorCode::AccessDenied: return status_codes::Forbidden;
        case ErrorCode::SharingViolation: return 423;
        case ErrorCode::UnsupportedType: return status_codes::UnsupportedMediaType;
        default: return status_codes::InternalError;
    }
}

std::optional<CacheClass> ParseProvenance(std::wstring_view text) {
    constexpr std::array<std::wstring_view, 7> kNames{L"Absent",  L"Manifest", L"Development", L"Session",
                                                      L"Dynamic", L"Archive",  L"View"};
    for (std::size_t value = 0; value != kNames.size(); ++value) {
        if (EqualNoCase(text, kNames[value])) return static_cast<CacheClass>(value);
    }
    return std::nullopt;
}

CVariant GetValue(IResultValues& values, std::wstring_view name) {
    const CVariant key(name);
    CVariant value;
    if (!Succeeded(values.GetValue(&key, value.Receive()))) VariantClear(value);
    return value;
}

}  // namespace

std::wstring ReasonFor(HRESULT result) {
    std::wstring reason = TakeErrorInfo().substr(0, kLongestReason);
    if (reason.empty()) reason = HResultMessage(result);
    reason += reason.empty() ? L"0x" : L" (0x";
    reason += ToHex(static_cast<std::uint32_t>(result), 8);
    return reason.starts_with(L"0x") ? reason : reason + L")";
}

std::uint16_t CSQLRequestInstance::Response::StatusCode() {
    if (!ready.try_wait()) {
        AboutToWait();
        ready.wait();
    }
    return status;
}

concurrency::streams::istream& CSQLRequestInstance::Response::Body() {
    Ignore(StatusCode());
    return m_body;
}

void CSQLRequestInstance::Response::Start(const std::wstring& name, const web::http::http_request& request,
                                          CHTMLDataSource::Rendering rendering) {
    const auto self = shared_from_this();
    Results::Open(
        name, request,
        [self](const std::shared_ptr<Results::QueryInfo>& query, const Results::CallbackOpen& opened) {
            self->contentType = query->ContentType();
            self->OpenQuery(*query);
            opened.Complete(query);
        },
        std::move(rendering))
        .then(
            [self](const pplx::task<std::shared_ptr<Results::QueryInfo>>& opened) { self->Finish(opened); });
}

void CSQLRequestInstance::Response::Finish(const pplx::task<std::shared_ptr<Results::QueryInfo>>& opened) {
    try {
        const CFaultScope scope;
        m_body = Results::Body(opened.get());
        status = status_codes::OK;
    } catch (const std::system_error& error) {
        status = StatusOf(static_cast<ErrorCode>(error.code().value()));
    } catch (...) {
        TakeCaughtFault();
        status = status_codes::InternalError;
    }
    ready.count_down();
}

std::wstring CSQLRequestInstance::Response::ReadText() const {
    auto text = ReadQueryFile(m_shared->files, m_queryFile);
    if (!text.IsOk()) throw ToSystemError(HResultFromWin32(ToNumber(text.Error())));
    return std::move(text).Value();
}

void CSQLRequestInstance::Response::OpenSource(Results::QueryInfo& query, const std::wstring& initialisation,
                                               std::uint32_t messageId) const {
    const HRESULT result = query.Open(initialisation);
    if (Succeeded(result)) return;
    if (result != DB_E_CANCELED) {
        m_shared->sources.Write(ReasonFor(result), [&](const std::wstring& reason) {
            MessageError(messageId, {initialisation, reason}).Report();
        });
    }
    throw ToSystemError(result);
}

void CSQLRequestInstance::Response::ReportFailures(Results::QueryInfo& query, const std::wstring& command,
                                                   std::uint32_t messageId) const {
    // It may be needed after this response has gone.
    query.ReportFailures([shared = m_shared, command, messageId, file = m_queryFile](HRESULT result) {
        shared->commands.Write(ReasonFor(result), [&](const std::wstring& reason) {
            const bool isLong = command.size() > kLongestCommand;
            const std::wstring shown = isLong ? command.substr(0, kLongestCommand) + L"…" : command;
            MessageError(messageId, {shown, reason, file}).Report();
        });
    });
}

/// The state of one running query.
class CSQLRequestHandler::Response final : public CSQLRequestInstance::Response {
 public:
    Response(const CSQLRequestHandler& handler, web::http::http_request request, const UserIdentity& user,
             const TextMap& namedValues)
        : CSQLRequestInstance::Response(handler.queryFile, handler.m_shared),
          m_request(std::move(request)),
          m_user(user.Text()),
          m_namedValues(namedValues) {}

 private:
    void OpenQuery(Results::QueryInfo& query) override;
    void SetParameters(Results::QueryInfo& query) const;
    void Execute(Results::QueryInfo& query, const std::wstring& command);
    void TakeResultValues(IResultValues& values);
    void AddHeader(std::wstring_view field);

    const web::http::http_request m_request;
    const std::wstring m_user;
    const TextMap m_namedValues;
};

void CSQLRequestHandler::Response::OpenQuery(Results::QueryInfo& query) {
    Ignore(TakeErrorInfo());  // of whoever had the thread before
    const std::wstring command = ReadText();
    OpenSource(query, kInitialisation, message::kDataSourceUnavailable);
    SetParameters(query);
    ReportFailures(query, command, message::kCommandFailed);
    Execute(query, command);
    const HRESULT result = query.Prepare();
    if (result == HResultFromWin32(ToNumber(ErrorCode::NotFound))) throw ToSystemError(result);
    if (!Succeeded(result)) query.Fail(result);
}

void CSQLRequestHandler::Response::SetParameters(Results::QueryInfo& query) const {
    query.SetParameter(L"Session$User", m_user);
    const auto host = m_request.headers().find(web::http::header_names::host);
    query.SetParameter(L"Session$Host", host == m_request.headers().end() ? L"" : FromUtf8(host->second));
    query.SetHeaders(m_request);
    for (const auto& [name, value] : m_namedValues) query.SetParameter(name, value);
    for (const auto& [name, value] : web::uri::split_query(m_request.relative_uri().query())) {
        query.SetParameter(FromUtf8(name), FromUtf8(PercentDecode(value).value_or(value)));
    }
}

void CSQLRequestHandler::Response::Execute(Results::QueryInfo& query, const std::wstring& command) {
    CComPtr<IUnknown> values;
    const HRESULT result = query.Execute(command, IResultValues::kId, values.Receive());
    if (!Succeeded(result)) query.Fail(result);
    if (values) TakeResultValues(*reinterpret_cast<IResultValues*>(values.Get()));
}

void CSQLRequestHandler::Response::TakeResultValues(IResultValues& values) {
    CVariant provenance = GetValue(values, L"HTTP.Provenance");
    if (Succeeded(VariantChangeType(provenance, provenance, VT_BSTR))) {
        m_cacheClass = ParseProvenance(provenance.Text()).value_or(m_cacheClass);
    }
    const CVariant header = GetValue(values, L"HTTP.Header");
    if (header.vt == VT_BSTR) AddHeader(header.Text());
    if (header.vt != (VT_ARRAY | VT_BSTR)) return;
    const auto* const fields = static_cast<const BSTR*>(header.parray->data);
    for (std::uint32_t index = 0; index != header.parray->count; ++index) AddHeader(ToView(fields[index]));
}

void CSQLRequestHandler::Response::AddHeader(std::wstring_view field) {
    const std::size_t colon = field.find(L':');
    if (colon == field.npos) return;
    const std::wstring_view value = Trim(field.substr(colon + 1));
    const auto [header, isNew] = m_headers.try_emplace(std::wstring(Trim(field.substr(0, colon))));
    if (!isNew) header->second += L", ";
    header->second += value;
}

void CSQLRequestHandler::Register(IClock& clock) {
    CRequestHandlerFactory::Register(L"SQL", [shared = std::make_shared<Shared>(clock)](
                                                 const std::wstring& folder, const std::wstring& file) {
        return std::make_shared<CSQLRequestHandler>(folder, file, shared);
    });
}

std::shared_ptr<CHTTPServer::CRequestHandler::CResponse> CSQLRequestHandler::CreateResponse(
    const web::http::http_request& request, const UserIdentity& user, const TextMap& parameters) {
    const auto response = std::make_shared<Response>(*this, request, user, parameters);
    response->Start(root, request, {});
    return response;
}

}  // namespace quorbel
