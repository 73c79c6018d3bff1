#include "http/HTTPServer.h"

#include <cpprest/uri_builder.h>
#include <set>

#include "LibService/CException.h"
#include "LibService/MessageIds.h"
#include "http/Listener.h"
#include "platform/Text.h"
#include "platform/fault/Faults.h"

namespace quorbel {

namespace {

/// A host's key with an armed watch on it: armed before the key is read, so that no change is missed.
struct CWatchedKey {
    CRegistryKey key;
    std::shared_ptr<CEvent> changed;
};

CStatus OpenWatched(const CRegistryKey& hosts, const std::wstring& host, CWatchedKey& watched) {
    auto key = hosts.OpenKey(host, KeyAccess::ReadWrite);
    if (!key.IsOk()) return SystemError(key.Error());
    auto changed = CEvent::Create(EventReset::Auto);
    if (!changed.IsOk()) return SystemError(changed.Error());
    watched = {std::move(key).Value(), std::move(changed).Value()};
    RETURN_IF_SYSTEM_ERROR(
        watched.key.WatchKey(WatchScope::Key, WatchFilter::NamesAndValues, watched.changed));
    return {};
}

bool IsPort(std::wstring_view text) {
    const auto number = TakeDecimal(text);
    return text.empty() && number && *number >= 1 && *number <= 65535;
}

/// The listening address; throws what the HTTP library throws for a text that is no URI.
web::uri ParseAddress(const std::wstring& url) {
    const web::uri parsed(ToUtf8(url));
    return web::uri_builder()
        .set_scheme(parsed.scheme())
        .set_host(parsed.host())
        .set_port(parsed.port())
        .set_path("/")
        .to_uri();
}

}  // namespace

CHTTPServer::CHTTPServer(const Environment& environment)
    : m_environment(environment), m_files(environment.clock) {}

CHTTPServer::~CHTTPServer() = default;

CStatus CHTTPServer::EnumerateHosts(const CRegistryKey::OnSubkey& onHost) const {
    const auto copy = m_hosts->DuplicateKey();
    if (!copy.IsOk()) return SystemError(copy.Error());
    return copy.Value().EnumerateSubkeys(onHost);
}

CStatus CHTTPServer::BuildAllHosts(CComPtr<IArchiveFileSystem> archive, const CRegistryKey& hosts,
                                   const CRegistryKey& applications) {
    m_archive = std::move(archive);
    m_hosts = &hosts;
    m_applications = &applications;
    const CStatus status = EnumerateHosts([this](const std::wstring& host) { return BuildHost(host); });
    if (status.IsOk()) PublishFolders();
    return status;
}

void CHTTPServer::SynchroniseHostSet() {
    std::set<std::wstring> vanished;
    for (const auto& [host, listener] : m_listeners) vanished.insert(host);
    const CStatus status = EnumerateHosts(
        [&](const std::wstring& host) { return vanished.erase(host) != 0 ? CStatus() : BuildHost(host); });
    status.Report();
    if (!status.IsOk()) return;
    for (const std::wstring& host : vanished) m_listeners.erase(host);
    m_counters.closed += vanished.size();
    PublishFolders();
}

CStatus CHTTPServer::RebuildHostIfChanged(const std::wstring& host) {
    const auto found = m_listeners.find(host);
    if (found == m_listeners.end() || !found->second->TakeHostKeyChange()) return {};
    CStatus status = BuildHost(host);
    // What a host that fails had published may be published again in a moment.
    if (status.IsOk()) PublishFolders();
    return status;
}

void CHTTPServer::PublishFolders() const {
    if (!m_environment.published) return;
    std::vector<std::wstring> folders;
    for (const auto& [host, listener] : m_listeners) listener->AppendFolders(folders);
    m_environment.published->Publish(folders);
}

CStatus CHTTPServer::StopAll() {
    CStatus status;
    for (const auto& [host, listener] : m_listeners) {
        try {
            const CFaultScope scope;
            listener->Close();
        } catch (CException* exception) {
            status = TakeException(exception);
        } catch (const std::exception& exception) {
            status = MessageError(message::kStandardException, exception);
        }
    }
    m_environment.trace.Trace(*this, trace::kListenersStopped);
    return status;
}

CStatus CHTTPServer::BuildHost(const std::wstring& host) {
    std::wstring url;
    try {
        const CFaultScope scope;
        return PlaceListener(host, url);
    } catch (CException* exception) {
        CStatus status = TakeException(exception);
        TraceFailure(url.empty() ? status.Text() : url);
        return status;
    } catch (const std::exception& exception) {
        CStatus status = MessageError(message::kStandardException, exception);
        TraceFailure(url.empty() ? status.Text() : url);
        return status;
    }
}

CStatus CHTTPServer::PlaceListener(const std::wstring& host, std::wstring& url) {
    CWatchedKey watched;
    RETURN_IF_FAILED(OpenWatched(*m_hosts, host, watched));
    HostConfiguration configuration;
    RETURN_IF_FAILED(
        MergeHostConfiguration(host, watched.key, *m_applications, *m_archive.Get(), configuration));
    url = configuration.protocol + L"://" + host + L":" + configuration.port;
    if (!IsPort(configuration.port)) {
        TraceFailure(url);
        return MessageError(message::kStandardException,
                            {L"the port \"" + configuration.port + L"\" is no number from 1 to 65535"});
    }
    const web::uri address = ParseAddress(url);

    const auto existing = m_listeners.find(host);
    if (existing != m_listeners.end()) {
        CListener& listener = *existing->second;
        // With another key under the host's name this is another host, with other users.
        if (listener.HasSameAddress(address, configuration) && !listener.HasLostHostKey()) {
            listener.Update(std::move(configuration));
            ++m_counters.updated;
            return {};
        }
        m_listeners.erase(existing);
        ++m_counters.closed;
    }
    auto listener = std::make_unique<CListener>(*this, address, std::move(configuration), host);
    CStatus status = listener->Initialise(std::move(watched.key), std::move(watched.changed));
    if (!status.IsOk()) {
        TraceFailure(url);
        return status;
    }
    if (listener->HasAccessRoot()) {
        listener->Open();
        m_environment.trace.Trace(*this, trace::kListenerOpened, {url});
    }
    m_listeners.emplace(host, std::move(listener));
    ++m_counters.built;
    return {};
}

void CHTTPServer::TraceFailure(const std::wstring& text) {
    m_environment.trace.Trace(*this, trace::kListenerFailed, {text});
}

}  // namespace quorbel
