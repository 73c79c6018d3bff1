#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "LibService/Status.h"
#include "LibService/TraceLogger.h"
#include "components/archive/ArchiveFileSystem.h"
#include "components/search/PublishedFolders.h"
#include "config/HostConfiguration.h"
#include "config/RegistryKey.h"
#include "platform/Clock.h"
#include "platform/FileCache.h"
#include "platform/folders/FolderSearch.h"

namespace quorbel {

/// The hosts' listeners: one per subkey of the hosts key, built from its merged configuration, kept across
/// reloads while its address and access roots stay the same. Its operations run on the service's main thread
/// only.
class CHTTPServer : public CTraceLoggable {
 public:
    class CListener;
    class CLocation;
    class IAuthenticator;
    class CAuthenticator;
    class CRequestHandler;

    /// What the server stands on; all of it outlives the server.
    struct Environment {
        IFolderSearch& folders;
        CTraceLogger& trace;
        IClock& clock;
        IPublishedFolders* published = nullptr;  ///< is told what all hosts publish; null for nobody
    };

    explicit CHTTPServer(const Environment& environment);
    ~CHTTPServer() override;
    CHTTPServer(const CHTTPServer&) = delete;
    CHTTPServer& operator=(const CHTTPServer&) = delete;

    const char* TraceName() const override { return "HTTP Server"; }

    /// What happened to listeners since the start, for diagnosis; may be read by any thread.
    struct Counters {
        std::atomic<std::uint64_t> built{0};    ///< made anew, opened or not
        std::atomic<std::uint64_t> updated{0};  ///< given a new configuration in place
        std::atomic<std::uint64_t> closed{0};   ///< destroyed by a reload
    };
    const Counters& GetCounters() const noexcept { return m_counters; }

    /// Builds every host; stops at the first that fails. `applications` is not open when the tree has none.
    /// Both keys are used until the server has been stopped.
    CStatus BuildAllHosts(CComPtr<IArchiveFileSystem> archive, const CRegistryKey& hosts,
                          const CRegistryKey& applications);
    /// Builds the hosts that are new and then closes those that vanished. The pass stops at the first host
    /// that fails, which is written to the event log; nothing is closed then.
    void SynchroniseHostSet();
    /// Builds the host anew when its own key changed since its last build.
    CStatus RebuildHostIfChanged(const std::wstring& host);
    /// Closes every listener.
    CStatus StopAll();

 private:
    CStatus EnumerateHosts(const CRegistryKey::OnSubkey& onHost) const;
    /// Builds one host: updates its listener in place when address and roots are unchanged, replaces it
    /// otherwise.
    CStatus BuildHost(const std::wstring& host);
    /// The work of BuildHost, which turns what the HTTP library throws into a status. `url` is set once
    /// known.
    CStatus PlaceListener(const std::wstring& host, std::wstring& url);
    /// Tells which folders all hosts publish.
    void PublishFolders() const;
    void TraceFailure(const std::wstring& text);

    const Environment m_environment;
    CFileCache m_files;  // used by handlers, whose threads are many
    CComPtr<IArchiveFileSystem> m_archive;
    const CRegistryKey* m_hosts = nullptr;
    const CRegistryKey* m_applications = nullptr;
    std::map<std::wstring, std::unique_ptr<CListener>> m_listeners;
    Counters m_counters;
};

}  // namespace quorbel
