#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "components/http_server/Acceptor.h"
#include "components/http_server/Admission.h"
#include "components/http_server/HttpServer.h"
#include "components/http_server/Port.h"
#include "components/http_server/Tls.h"

namespace quorbel {

/// The hosts, their ports and sockets, and the loops that serve them. Safe to use from any thread.
class CHostServer {
 public:
    /// Starts the loops; `error` tells why they could not be started.
    CHostServer(IHttpServer::CEnvironment environment, ErrorCode& error);
    ~CHostServer();
    CHostServer(const CHostServer&) = delete;
    CHostServer& operator=(const CHostServer&) = delete;

    /// Opens a listener's host; throws std::runtime_error with the reason when that fails.
    void Add(CHost::Listener& listener);
    /// Closes it; its handlers have returned then.
    void Remove(CHost::Listener& listener);

 private:
    using Endpoint = CAcceptor::Endpoint;

    /// A port in use, with its sockets.
    struct COpenPort {
        std::shared_ptr<CPort> port;
        CAcceptor::List acceptors;
    };
    struct COpenHost {
        int port;
        std::shared_ptr<CHost> host;
    };

    std::shared_ptr<CHost> MakeHost(CHost::Listener& listener, CPort::Scheme scheme, int port);
    /// Listens on the addresses that the port's hosts need, and on no others; the state of before when that
    /// fails.
    void OpenSockets(COpenPort& open);
    std::shared_ptr<CAcceptor> OpenSocket(const Endpoint& endpoint, const COpenPort& open);
    void Accept(CLoop& loop, CAcceptor::Socket socket, const std::shared_ptr<CPort>& port);
    std::shared_ptr<const CHttpLimits> Limits() const;
    void ReadLimits();
    void Follow();
    void Stop();

    const IHttpServer::CEnvironment m_environment;
    const CTlsServer m_tls;
    CCertificates m_certificates;
    const std::shared_ptr<CAdmissions> m_admissions = std::make_shared<CAdmissions>();
    CLoopWatch m_watch;
    CAcceptor::Loops m_loops;
    std::unique_ptr<CLoopThreads> m_threads;  // uses the loops
    std::shared_ptr<CEvent> m_stop;
    std::shared_ptr<CEvent> m_limitsChanged;
    std::thread m_follower;
    std::set<std::wstring> m_problems;  // of the bounds, as reported; used by the follower after the start

    mutable CMutex m_limitsLock{LockRank::Innermost};  // guards:
    std::shared_ptr<const CHttpLimits> m_limits;
    CMutex m_lock{LockRank::HttpServer};  // guards what follows
    std::map<int, COpenPort> m_ports;
    std::map<CHost::Listener*, COpenHost> m_hosts;
};

}  // namespace quorbel
