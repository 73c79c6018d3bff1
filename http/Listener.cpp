#include "http/Listener.h"

#include <algorithm>
#include <shared_mutex>

#include "LibService/CException.h"
#include "LibService/EventLog.h"
#include "LibService/MessageIds.h"
#include "platform/File.h"
#include "platform/Thread.h"
#include "platform/crypto/Secret.h"
#include "platform/fault/Faults.h"

namespace quorbel {

namespace {

using web::http::http_request;
using web::http::status_codes;

std::shared_ptr<const CListenerConfiguration> TakeConfiguration(HostConfiguration& configuration) {
    return std::make_shared<const CListenerConfiguration>(CListenerConfiguration{
        std::move(configuration.directoryMappings), std::move(configuration.webApplications),
        std::move(configuration.namedValues), configuration.rangeCap});
}

bool IsTls(const web::uri& address) {
    return EqualNoCase(FromUtf8(address.scheme()), L"https");
}

bool IsForm(const http_request& request) {
    const auto field = request.headers().find(web::http::header_names::content_type);
    return field != request.headers().end() && IsFormContentType(FromUtf8(field->second));
}

/// What is told of a request at most, in bytes: a trace record does not hold more.
constexpr std::size_t kLongestDescription = 8000;

/// Whether a header's value lets its reader act for the user. Trace records are for many eyes.
bool IsCredential(const std::string& header) {
    constexpr std::array kCredentials{L"Authorization", L"Cookie", L"Proxy-Authorization"};
    return std::any_of(
        kCredentials.begin(), kCredentials.end(),
        [name = FromUtf8(header)](const wchar_t* credential) { return EqualNoCase(name, credential); });
}

/// One line on a request: version, method, path and query, headers, without credentials.
std::wstring Describe(const http_request& request) {
    std::string text;
    const auto append = [&text](std::initializer_list<std::string_view> parts) {
        for (std::string_view part : parts) text.append(part.substr(0, kLongestDescription - text.size()));
    };
    const web::uri& target = request.request_uri();
    append({std::to_string(request.http_version().major), ".", std::to_string(request.http_version().minor),
            " ", request.method(), " ", target.path(), target.query(), " headers{"});
    for (const auto& [name, value] : request.headers())
        append({" ", name, "{", IsCredential(name) ? "***" : value, "}"});
    append({" }"});
    return FromUtf8(text);
}

}  // namespace

CHTTPServer::CListener::CListener(CHTTPServer& service, const web::uri& address,
                                  HostConfiguration configuration, std::wstring host)
    : m_service(service),
      m_environment(service.m_environment),
      m_endpoint(address),
      m_host(std::move(host)),
      m_archive(service.m_archive),
      m_accessRoots(std::move(configuration.accessRoots)),
      m_reply(IsTls(address) ? CReply::Transport::Tls : CReply::Transport::Plain),
      m_locationValues(std::move(configuration.locations)),
      m_notFoundEvents(m_environment.clock),
      m_failureEvents(m_environment.clock),
      m_configuration(TakeConfiguration(configuration)) {
    RegisterEntries();
}

CHTTPServer::CListener::~CListener() {
    StopWatcher();
    try {
        if (m_isOpen) m_endpoint.close().wait();
    } catch (const std::exception& exception) {
        MessageError(message::kStandardException, exception).Report();
    }
    m_entries->CloseAndWait();
}

void CHTTPServer::CListener::RegisterEntries() {
    const auto support = [this](const web::http::method& method, EntryTrace trace, Entry entry) {
        m_endpoint.support(method, [=, this](const Request& request) { Enter(request, trace, entry); });
    };
    support(web::http::methods::GET, EntryTrace::Written, &CListener::OnGet);
    support(web::http::methods::POST, EntryTrace::Written, &CListener::OnPost);
    support(web::http::methods::OPTIONS, EntryTrace::Written, &CListener::OnOptions);
    // The library would echo a TRACE request by itself.
    support(web::http::methods::TRCE, EntryTrace::NotWritten, &CListener::OnOther);
    m_endpoint.support(
        [this](const Request& request) { Enter(request, EntryTrace::NotWritten, &CListener::OnOther); });
}

CStatus CHTTPServer::CListener::Initialise(CRegistryKey hostKey, std::shared_ptr<CEvent> hostKeyChanged) {
    m_hostKey = std::move(hostKey);
    m_hostKeyChanged = std::move(hostKeyChanged);
    RETURN_IF_FAILED(CheckRoots());
    RETURN_IF_FAILED(CreateLocations());
    return StartWatcher();
}

CStatus CHTTPServer::CListener::CheckRoots() const {
    for (const auto& [level, folder] : m_accessRoots) {
        if (!OpenFolder(folder).IsOk()) return MessageError(message::kFolderUnavailable, {folder, m_host});
    }
    return {};
}

CStatus CHTTPServer::CListener::CreateLocations() {
    for (const auto& [path, values] : m_locationValues) {
        auto [status, instance] = CLocation::Create(m_service, path, m_hostKey, values, *this);
        RETURN_IF_FAILED(status);
        m_locations.emplace(path, std::move(instance));
    }
    m_locationValues.clear();
    return {};
}

CStatus CHTTPServer::CListener::StartWatcher() {
    auto stop = CEvent::Create(EventReset::Manual);
    if (!stop.IsOk()) return SystemError(stop.Error());
    auto changed = CEvent::Create(EventReset::Auto);
    if (!changed.IsOk()) return SystemError(changed.Error());
    m_stop = std::move(stop).Value();
    m_foldersChanged = std::move(changed).Value();
    m_follower = m_environment.folders.Follow(m_foldersChanged);
    auto thread = StartThread("FolderWatcher", [this] { WatchFolders(); });
    if (!thread.IsOk()) return SystemError(thread.Error());
    m_watcher = std::move(thread).Value();
    return {};
}

void CHTTPServer::CListener::WatchFolders() {
    for (;;) {
        const auto woken = WaitForAny({m_stop.get(), m_foldersChanged.get()});
        if (!woken.IsOk()) {
            SystemError(woken.Error()).Report();
            return;
        }
        if (woken.Value() == 0) return;
        m_routingCache.Clear();
    }
}

void CHTTPServer::CListener::StopWatcher() {
    if (!m_watcher.joinable()) return;
    m_stop->Set();
    m_watcher.join();
}

void CHTTPServer::CListener::Open() {
    m_endpoint.open().wait();
    m_isOpen = true;
}

void CHTTPServer::CListener::Close() {
    StopWatcher();
    if (!m_isOpen) return;
    m_isOpen = false;
    m_endpoint.close().wait();
}

bool CHTTPServer::CListener::HasSameAddress(const web::uri& address,
                                            const HostConfiguration& configuration) const {
    return m_endpoint.uri() == address && m_accessRoots == configuration.accessRoots;
}

void CHTTPServer::CListener::Update(HostConfiguration configuration) {
    Configuration taken = TakeConfiguration(configuration);
    {
        const std::lock_guard lock(m_configurationLock);
        m_configuration.swap(taken);
    }
    m_routingCache.Clear();
}

CHTTPServer::CListener::Routing CHTTPServer::CListener::BeginRouting() const {
    // In this order: what is found by a configuration that is replaced meanwhile is then not kept.
    const std::uint64_t generation = m_routingCache.Generation();
    const std::shared_lock lock(m_configurationLock);
    return {generation, m_configuration};
}

bool CHTTPServer::CListener::TakeHostKeyChange() {
    if (!m_hostKeyChanged->Test() && !m_hasLostHostKey) return false;
    m_hasLostHostKey = m_hostKey.WatchKey(WatchScope::Key, WatchFilter::NamesAndValues, m_hostKeyChanged) !=
                       ErrorCode::Success;
    return true;
}

void CHTTPServer::CListener::Enter(const Request& request, EntryTrace trace, Entry entry) {
    const CGatePass pass(*m_entries);
    try {
        const CFaultScope scope;
        if (!pass.IsInside()) return m_reply.SendWithoutBody(request, status_codes::ServiceUnavailable);
        if (trace == EntryTrace::Written) {
            m_environment.trace.Trace(m_service, trace::kRequest, {Describe(request)});
        }
        const auto path = CUrlPath::Parse(request.request_uri().path());
        if (const auto* refusal = std::get_if<CUrlPath::Refusal>(&path)) {
            const bool isTooLong = *refusal == CUrlPath::Refusal::TooLong;
            m_reply.SendWithoutBody(request,
                                    isTooLong ? status_codes::RequestUriTooLarge : status_codes::BadRequest);
            return;
        }
        (this->*entry)(request, std::get<CUrlPath>(path));
    } catch (CException* fault) {
        ReplyFault(request, TakeException(fault));
    } catch (const std::exception& exception) {
        ReplyFailure(request, exception.what());
    }
}

void CHTTPServer::CListener::ReplyFailure(const Request& request, const char* what) noexcept {
    try {
        m_failureEvents.Write(FromUtf8(what), [](const std::wstring& text) {
            MessageError(message::kCaughtException, {text}).Report();
        });
        request.reply(status_codes::InternalError);
    } catch (const std::exception&) {
        // The request was answered already, or there is no memory to answer it: the connection ends.
    }
}

void CHTTPServer::CListener::ReplyFault(const Request& request, const CStatus& fault) noexcept {
    try {
        fault.Report();
        request.reply(status_codes::InternalError);
    } catch (const std::exception&) {
        // As above.
    }
}

void CHTTPServer::CListener::AppendFolders(std::vector<std::wstring>& folders) const {
    const Configuration configuration = BeginRouting().configuration;
    for (const auto& [level, root] : m_accessRoots) folders.push_back(root);
    for (const auto& [level, applications] : configuration->webApplications) {
        for (const auto& [prefix, folder] : applications) folders.push_back(folder);
    }
    for (const auto& [name, folder] : configuration->directoryMappings)
        folders.push_back(PublishedPath(folder));
}

void CHTTPServer::CListener::OnGet(const Request& request, const CUrlPath& path) {
    const Routing routing = BeginRouting();
    const auto [user, handler] = FindRequestHandler(request, path, routing);
    if (!handler) {
        const bool hasCookie = m_authenticator && !m_authenticator->ReadCookie(request).empty();
        if (hasCookie) return m_reply.SendWithoutBody(request, status_codes::SeeOther, {{L"Location", L"/"}});
        return m_reply.SendWithoutBody(request, status_codes::NotFound);
    }
    const auto response = handler->CreateResponse(request, user, routing.configuration->namedValues);
    const std::uint16_t status = response->StatusCode();
    if (status == status_codes::OK || status == status_codes::PartialContent) {
        m_reply.SendWithBody(request, *response);
    } else {
        m_reply.SendWithoutBody(request, status, response->Headers());
    }
}

void CHTTPServer::CListener::OnPost(const Request& request, const CUrlPath& path) {
    if (!IsForm(request)) return AnswerPost(request, path, {});
    // The body may still be on its way. Nothing waits for it, so the listener may be gone when it is here.
    request.extract_vector().then(
        [this, entries = m_entries, request, path](const pplx::task<std::vector<unsigned char>>& read) {
            std::vector<unsigned char> body;
            try {
                body = read.get();
            } catch (const std::exception&) {
                return;  // the client left
            }
            const CGatePass pass(*entries);
            if (pass.IsInside()) {
                OnForm(request, path, body);
            } else {
                request.reply(status_codes::ServiceUnavailable);
            }
            Wipe(body);
        });
}

void CHTTPServer::CListener::OnForm(const Request& request, const CUrlPath& path,
                                    const std::vector<unsigned char>& body) {
    try {
        const CFaultScope scope;
        auto fields = ParseForm({reinterpret_cast<const char*>(body.data()), body.size()});
        if (!fields) return m_reply.SendWithoutBody(request, status_codes::RequestEntityTooLarge);
        AnswerPost(request, path, *std::move(fields));
    } catch (CException* fault) {
        ReplyFault(request, TakeException(fault));
    } catch (const std::exception& exception) {
        ReplyFailure(request, exception.what());
    }
}

void CHTTPServer::CListener::AnswerPost(const Request& request, const CUrlPath& path, CFormFields fields) {
    const Routing routing = BeginRouting();
    const auto [user, handler] = FindRequestHandler(request, path, routing);
    if (!handler) return m_reply.SendWithoutBody(request, status_codes::NotFound);
    // What the configuration alone may name is not taken from a form.
    std::erase_if(fields.values, [](const auto& field) { return IsConfigurationName(field.first); });
    for (const auto& [name, value] : routing.configuration->namedValues) fields.values[name] = value;
    const auto response = handler->CreateResponse(request, user, fields.values);
    m_reply.SendWithBody(request, *response);
}

void CHTTPServer::CListener::OnOptions(const Request& request, const CUrlPath& path) {
    SendOptions(request, path, status_codes::OK);
}

void CHTTPServer::CListener::OnOther(const Request& request, const CUrlPath& path) {
    m_environment.trace.Trace(m_service, trace::kMethodRefused, {FromUtf8(request.method()), path.Text()});
    SendOptions(request, path, status_codes::MethodNotAllowed);
}

void CHTTPServer::CListener::SendOptions(const Request& request, const CUrlPath& path, std::uint16_t status) {
    bool acceptsPost = path.Text() == L"*";
    if (const auto location = m_locations.find(path.Text()); location != m_locations.end()) {
        http_request probe(web::http::methods::POST);
        probe.set_request_uri(request.request_uri());
        acceptsPost = location->second->CreateRequestHandler(probe) != nullptr;
    }
    m_reply.SendOptions(request, status, acceptsPost ? L"GET, POST" : L"GET");
}

}  // namespace quorbel
