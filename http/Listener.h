#pragma once

#include <cpprest/http_listener.h>
#include <memory>
#include <thread>

#include "http/Authenticator.h"
#include "http/EventLimiter.h"
#include "http/FormBody.h"
#include "http/ListenerConfiguration.h"
#include "http/Location.h"
#include "http/Reply.h"
#include "http/RequestHandler.h"
#include "http/RoutingCache.h"
#include "platform/Gate.h"
#include "platform/Lock.h"
#include "platform/UrlPath.h"

namespace quorbel {

/// One host: its endpoint, its configuration and what answers its requests. Built, updated and destroyed by
/// the service's main thread; the request entries run on the HTTP library's threads, many at once.
class CHTTPServer::CListener {
 public:
    CListener(CHTTPServer& service, const web::uri& address, HostConfiguration configuration,
              std::wstring host);
    /// Stops the watcher and closes the endpoint; no request entry runs afterwards.
    ~CListener();
    CListener(const CListener&) = delete;
    CListener& operator=(const CListener&) = delete;

    /// Makes the listener ready to be opened: checks its roots, creates its locations, takes over the host's
    /// key, on which a watch that sets `hostKeyChanged` is armed already, and starts the watcher. Errors:
    /// message 0xC00000C9 (folder, host) for a root that cannot be opened, and those of the locations.
    CStatus Initialise(CRegistryKey hostKey, std::shared_ptr<CEvent> hostKeyChanged);
    /// Opens the endpoint; throws what the HTTP library throws.
    void Open();
    /// Stops the watcher, then closes the endpoint and waits for that.
    void Close();

    bool HasAccessRoot() const noexcept { return !m_accessRoots.empty(); }
    bool HasSameAddress(const web::uri& address, const HostConfiguration& configuration) const;
    /// Takes over everything that may change while the listener stays open, and forgets what it had routed.
    void Update(HostConfiguration configuration);

    /// Appends the folders whose files the host serves: roots, applications, mappings.
    void AppendFolders(std::vector<std::wstring>& folders) const;

    /// True when the host's key changed since the last call, or its watch was lost; it is armed again then.
    bool TakeHostKeyChange();
    /// True when the host's key was deleted under the listener: its watch is lost.
    bool HasLostHostKey() const noexcept { return m_hasLostHostKey; }

    /// Called by a location that authenticates callers; the last one counts.
    void SetAuthenticator(std::shared_ptr<IAuthenticator> authenticator) {
        m_authenticator = std::move(authenticator);
    }
    const std::wstring& Host() const noexcept { return m_host; }
    IArchiveFileSystem& Archive() const noexcept { return *m_archive.Get(); }

 private:
    using Request = web::http::http_request;
    using Configuration = std::shared_ptr<const CListenerConfiguration>;

    using Entry = void (CListener::*)(const Request& request, const CUrlPath& path);
    enum class EntryTrace { Written, NotWritten };

    void RegisterEntries();
    /// Runs an entry: a path that is refused is answered 400 or 414, an exception that leaves the entry 500.
    void Enter(const Request& request, EntryTrace trace, Entry entry);
    void OnGet(const Request& request, const CUrlPath& path);
    void OnPost(const Request& request, const CUrlPath& path);
    void OnForm(const Request& request, const CUrlPath& path, const std::vector<unsigned char>& body);
    void AnswerPost(const Request& request, const CUrlPath& path, CFormFields fields);
    void OnOptions(const Request& request, const CUrlPath& path);
    void OnOther(const Request& request, const CUrlPath& path);
    void SendOptions(const Request& request, const CUrlPath& path, std::uint16_t status);
    /// Answers 500 without a body after an exception, which goes to the event log.
    void ReplyFailure(const Request& request, const char* what) noexcept;
    void ReplyFault(const Request& request, const CStatus& fault) noexcept;

    /// What a request is routed by, taken when its routing begins.
    struct Routing {
        std::uint64_t generation;  ///< of the routing cache; not later than the configuration
        Configuration configuration;
    };
    Routing BeginRouting() const;
    std::pair<UserIdentity, std::shared_ptr<CRequestHandler>> FindRequestHandler(const Request& request,
                                                                                 const CUrlPath& path,
                                                                                 const Routing& routing);
    std::shared_ptr<CRequestHandler> FindCachedHandler(const Request& request, AccessLevel level,
                                                       const std::wstring& path, const Routing& routing);
    void ReportNotFound(const std::wstring& path);

    CStatus CheckRoots() const;
    CStatus CreateLocations();
    CStatus StartWatcher();
    void StopWatcher();
    /// The watcher thread: clears the routing cache when a name changed in a folder that was searched.
    void WatchFolders();

    // Constant after construction.
    CHTTPServer& m_service;
    const Environment& m_environment;
    web::http::experimental::listener::http_listener m_endpoint;
    const std::wstring m_host;
    const CComPtr<IArchiveFileSystem> m_archive;
    const std::map<AccessLevel, std::wstring> m_accessRoots;
    const CReply m_reply;

    // Constant after Initialise.
    std::map<std::wstring, TextMap> m_locationValues;  // until the locations are created
    std::map<std::wstring, std::shared_ptr<CLocation::CInstance>> m_locations;
    std::shared_ptr<IAuthenticator> m_authenticator;
    std::shared_ptr<CEvent> m_stop;
    std::shared_ptr<CEvent> m_foldersChanged;
    std::shared_ptr<IFolderFollower> m_follower;

    // Safe to use from any thread.
    const std::shared_ptr<CGate> m_entries = std::make_shared<CGate>();  ///< entries that run
    CRoutingCache m_routingCache;
    CEventLimiter m_notFoundEvents;
    CEventLimiter m_failureEvents;

    // Used by the main thread only.
    CRegistryKey m_hostKey;
    std::shared_ptr<CEvent> m_hostKeyChanged;
    bool m_hasLostHostKey = false;
    bool m_isOpen = false;
    std::thread m_watcher;

    mutable CReadWriteLock m_configurationLock{LockRank::ListenerConfiguration};  // lock A, guards:
    Configuration m_configuration;
};

}  // namespace quorbel
