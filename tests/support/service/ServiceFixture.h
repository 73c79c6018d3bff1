#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "components/http_server/HttpServer.h"
#include "http/Authenticator.h"
#include "platform/com/ClassRegistry.h"
#include "service/QuorbelHTTPService.h"
#include "tests/support/EventRecorder.h"
#include "tests/support/FaultyRegistry.h"
#include "tests/support/HandClock.h"
#include "tests/support/Sentences.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/service/HttpConnection.h"
#include "tests/support/service/TraceRecorder.h"

namespace quorbel {

/// What a service published last.
class CPublishedFolders final : public IPublishedFolders {
 public:
    void Publish(const std::vector<std::wstring>& folders) override {
        const std::lock_guard lock(m_lock);
        m_last = folders;
        if (m_next) m_next->Publish(folders);
    }
    /// Has it told on, from the beginning.
    void TellOn(IPublishedFolders* next) {
        const std::lock_guard lock(m_lock);
        m_next = next;
        if (m_next) m_next->Publish(m_last);
    }
    std::vector<std::wstring> Last() const {
        const std::lock_guard lock(m_lock);
        return m_last;
    }

 private:
    mutable std::mutex m_lock;
    std::vector<std::wstring> m_last;
    IPublishedFolders* m_next = nullptr;
};

/// A service in this process, over a registry, folders and a clock of its own, with real listeners on free
/// ports. Hosts are named by loopback addresses, so that many can be open at once.
class CServiceFixture : public ::testing::Test {
 protected:
    using Values = std::vector<std::pair<std::wstring, CValue>>;

    CServiceFixture();
    ~CServiceFixture() override;

    static constexpr const wchar_t* kHost = L"127.0.0.1";
    /// A folder below the temporary one, created when it is missing, as the registry holds it.
    std::wstring Folder(std::string_view name);
    std::filesystem::path Path(std::string_view name) const { return m_folder / name; }

    std::unique_ptr<IKey> HostKey(const std::wstring& host);
    /// Creates a host: http, `port`, and the values given.
    void AddHost(const std::wstring& host, int port, const Values& values);
    void SetText(const std::wstring& host, const std::wstring& name, const std::wstring& text);
    void DeleteHost(const std::wstring& host);
    /// A host at kHost with a User Root "root" and the values given; its port.
    int AddDefaultHost(const Values& values = {});
    void AddLocation(const std::wstring& host, const std::wstring& path, const std::wstring& handler);

    /// Starts the HTTP engine again, for settings that it reads at its start. Before Start.
    void StartHttpServer();
    /// Runs the service until `opened` endpoints are open, or, on a failure, to its end.
    void Start(std::size_t opened = 1);
    /// Stops the service and returns what its run routine returned.
    CStatus Stop();
    /// Waits for the end of a service that ends by itself.
    CStatus WaitForEnd();
    /// Stops the service if it runs, and destroys it: for a fixture whose members it uses.
    void End();

    /// One request on a connection of its own.
    CHttpReply Get(int port, std::string_view target, std::string_view headerLines = "");
    /// Asks again until the reply fulfils the condition; fails the test when it never does.
    CHttpReply GetUntil(int port, std::string_view target,
                        const std::function<bool(const CHttpReply&)>& condition);
    /// Waits for a condition that other threads bring about; fails the test when it never comes.
    static void WaitUntil(const std::function<bool()>& condition, const char* what);

    CTemporaryFolder m_folder;
    CRecordedEventLog m_events;
    CTraceRecorder m_trace;
    CHandClock m_clock;
    std::shared_ptr<CFaultyRegistry> m_registry;
    std::shared_ptr<IKey> m_localMachine;
    std::unique_ptr<CComRegistration> m_archive;
    std::shared_ptr<IFolderSearch> m_folders;
    std::shared_ptr<CEvent> m_stop;
    CPublishedFolders m_published;
    CSentences m_httpReports;
    std::unique_ptr<IHttpServer> m_httpServer;
    std::unique_ptr<CQuorbelHTTPService> m_service;

 private:
    std::thread m_thread;
    CStatus m_status;
};

/// The events with that identifier.
std::vector<CEventEntry> WithId(const std::vector<CEventEntry>& entries, std::uint32_t id);

}  // namespace quorbel
