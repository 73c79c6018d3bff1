#include "components/http_server/HostServer.h"

#include <ranges>
#include <set>
#include <stdexcept>

#include "components/http_server/Connection.h"
#include "components/http_server/HostName.h"
#include "components/http_server/Http1.h"
#include "platform/Processors.h"
#include "platform/Text.h"
#include "platform/Thread.h"

namespace quorbel {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using Endpoints = std::set<tcp::endpoint>;

/// How often bounds and certificates are looked at.
constexpr std::chrono::milliseconds kFollowing{500};

CPort::Scheme SchemeOf(const web::uri& address) {
    if (EqualsLower(address.scheme(), "http")) return CPort::Scheme::Http;
    if (EqualsLower(address.scheme(), "https")) return CPort::Scheme::Https;
    throw std::runtime_error("the protocol \"" + address.scheme() + "\" is neither http nor https");
}

std::string NameOf(const web::uri& address) {
    const std::string& host = address.host();
    if (!address.user_info().empty())
        throw std::runtime_error("\"" + address.authority().to_string() + "\" is no host name");
    if (host == "*" || host == "+") return host;
    if (host.empty() || host.size() > 255 || !IsAuthority(host)) {
        throw std::runtime_error("\"" + host + "\" is no host name");
    }
    return CanonicalHost(host);
}

/// Where a host of that name is reached.
Endpoints AddressesOf(const CHost& host, std::uint16_t port) {
    if (!host.IsLoopback()) return {{tcp::v4(), port}, {tcp::v6(), port}};
    boost::system::error_code isName;
    const auto address = asio::ip::make_address(host.Name(), isName);
    if (!isName) return {{address, port}};
    return {{asio::ip::address_v4::loopback(), port}, {asio::ip::address_v6::loopback(), port}};
}

Endpoints AddressesOf(const CPort& port) {
    Endpoints all;
    for (const auto& host : port.Hosts()) {
        all.merge(AddressesOf(*host, static_cast<std::uint16_t>(port.Number())));
    }
    return all;
}

/// True when the machine lacks that kind of address; the other kind will do.
bool IsWithoutFamily(const boost::system::error_code& error) {
    return error == asio::error::address_family_not_supported ||
           error == boost::system::errc::address_not_available;
}

std::string TextOf(const tcp::endpoint& endpoint) {
    const std::string address = endpoint.address().to_string();
    return (endpoint.address().is_v6() ? "[" + address + "]" : address) + ":" +
           std::to_string(endpoint.port());
}

}  // namespace

CHostServer::CHostServer(IHttpServer::CEnvironment environment, ErrorCode& error)
    : m_environment(std::move(environment)),
      m_certificates(m_environment.localMachine, m_environment.report) {
    ReadLimits();
    const std::size_t count = UsableProcessors();
    m_threads = std::make_unique<CLoopThreads>();
    m_threads->SetMost(m_limits->waitingHandlers, count);
    for (std::size_t i = 0; i < count; ++i) {
        m_loops.push_back(std::make_shared<CLoop>(*m_threads, m_watch, m_environment.clock));
    }
    error = m_watch.Start();
    for (const auto& loop : m_loops) {
        if (error == ErrorCode::Success && !m_threads->Run(*loop)) error = ErrorCode::NoSystemResources;
    }
    auto stop = CEvent::Create(EventReset::Manual);
    if (error == ErrorCode::Success) error = stop.Error();
    auto changed = CEvent::Create(EventReset::Auto);
    if (error == ErrorCode::Success) error = changed.Error();
    if (error != ErrorCode::Success) return;
    m_stop = std::move(stop).Value();
    m_limitsChanged = std::move(changed).Value();
    auto follower = StartThread("HttpFollower", [this] { Follow(); });
    error = follower.Error();
    if (follower.IsOk()) m_follower = std::move(follower).Value();
}

CHostServer::~CHostServer() {
    if (m_stop) m_stop->Set();
    if (m_follower.joinable()) m_follower.join();
    Stop();
    for (const auto& loop : m_loops) loop->Stop();
    m_threads.reset();
    for (const auto& loop : m_loops) loop->End();
}

void CHostServer::Stop() {
    {
        const std::lock_guard lock(m_lock);
        for (auto& [number, open] : m_ports) {
            open.port->Close();
            for (const auto& acceptor : open.acceptors) acceptor->CloseAndWait();
        }
    }
    for (const auto& loop : m_loops) loop->TickNow();
    m_admissions->WaitUntilNone(std::chrono::seconds(Limits()->stopSeconds));
}

std::shared_ptr<const CHttpLimits> CHostServer::Limits() const {
    const std::lock_guard lock(m_limitsLock);
    return m_limits;
}

void CHostServer::ReadLimits() {
    std::set<std::wstring> problems;
    auto limits = std::make_shared<const CHttpLimits>(
        CHttpLimits::Read(*m_environment.localMachine, [&](const std::wstring& problem) {
            // What is reported already is not said again when another value changes.
            if (!m_problems.contains(problem)) m_environment.report(problem);
            problems.insert(problem);
        }));
    m_problems.swap(problems);
    const std::lock_guard lock(m_limitsLock);
    m_limits = std::move(limits);
}

void CHostServer::Follow() {
    std::unique_ptr<IKey> key;
    const auto watch = [&] {
        // A key that does not exist yet is looked for again.
        if (!key) {
            auto opened = m_environment.localMachine->Open(CHttpLimits::kKey, KeyAccess::Read);
            if (!opened.IsOk()) return false;
            key = std::move(opened).Value();
        }
        if (key->Watch(WatchScope::Key, WatchFilter::Values, m_limitsChanged) == ErrorCode::Success)
            return true;
        key.reset();
        return false;
    };
    for (bool isWatched = false;;) {
        const auto woken = WaitForAny({m_stop.get(), m_limitsChanged.get()}, kFollowing);
        if (woken.IsOk() && woken.Value() == 0) return;
        m_certificates.Refresh();
        if (isWatched && !woken.IsOk()) continue;
        const bool hasKey = watch();
        if (hasKey || isWatched) {
            ReadLimits();
            m_threads->SetMost(Limits()->waitingHandlers, m_loops.size());
        }
        isWatched = hasKey;
    }
}

void CHostServer::Add(CHost::Listener& listener) {
    const web::uri& address = listener.uri();
    const CPort::Scheme scheme = SchemeOf(address);
    const std::lock_guard lock(m_lock);
    const auto host = MakeHost(listener, scheme, address.port());
    const auto [place, isNew] = m_ports.try_emplace(address.port());
    COpenPort& open = place->second;
    if (isNew) open.port = std::make_shared<CPort>(address.port(), scheme);
    try {
        if (open.port->GetScheme() != scheme) {
            throw std::runtime_error("port " + std::to_string(address.port()) +
                                     " serves the other one of http and https already");
        }
        if (!open.port->Add(host)) throw std::runtime_error("another host is served there under that name");
        try {
            OpenSockets(open);
        } catch (...) {
            open.port->Remove(*host);
            throw;
        }
        m_hosts.emplace(&listener, COpenHost{address.port(), host});
    } catch (...) {
        if (isNew) m_ports.erase(place);
        throw;
    }
}

std::shared_ptr<CHost> CHostServer::MakeHost(CHost::Listener& listener, CPort::Scheme scheme, int port) {
    const std::string name = NameOf(listener.uri());
    if (scheme == CPort::Scheme::Http) return std::make_shared<CHost>(name, listener, nullptr);
    std::wstring reason;
    auto binding = m_certificates.Follow(listener.uri().host(), port, reason);
    if (!binding) throw std::runtime_error(ToUtf8(reason));
    return std::make_shared<CHost>(name, listener, std::move(binding));
}

void CHostServer::Remove(CHost::Listener& listener) {
    std::shared_ptr<CHost> host;
    {
        const std::lock_guard lock(m_lock);
        const auto found = m_hosts.find(&listener);
        if (found == m_hosts.end()) return;
        host = found->second.host;
        const auto place = m_ports.find(found->second.port);
        m_hosts.erase(found);
        COpenPort& open = place->second;
        open.port->Remove(*host);
        if (open.port->Hosts().empty()) {
            open.port->Close();
            for (const auto& acceptor : open.acceptors) acceptor->CloseAndWait();
            m_ports.erase(place);
        } else {
            try {
                OpenSockets(open);
            } catch (const std::exception& exception) {
                m_environment.report(FromUtf8(exception.what()));
            }
        }
    }
    host->CloseAndWait();
}

std::shared_ptr<CAcceptor> CHostServer::OpenSocket(const Endpoint& endpoint, const COpenPort& open) {
    try {
        return CAcceptor::Open(endpoint, m_loops, open.acceptors,
                               [this, port = open.port](CLoop& loop, CAcceptor::Socket socket) {
                                   Accept(loop, std::move(socket), port);
                               });
    } catch (const boost::system::system_error& error) {
        if (IsWithoutFamily(error.code())) return nullptr;
        throw std::runtime_error("the address " + TextOf(endpoint) +
                                 " cannot be opened: " + error.code().message());
    }
}

void CHostServer::OpenSockets(COpenPort& open) {
    Endpoints missing = AddressesOf(*open.port);
    CAcceptor::List kept;
    CAcceptor::List surplus;
    const std::size_t before = open.acceptors.size();
    for (const auto& acceptor : open.acceptors) {
        (missing.erase(acceptor->LocalEndpoint()) != 0 ? kept : surplus).push_back(acceptor);
    }
    try {
        // IPv6 first: see CAcceptor::Covers.
        for (const Endpoint& endpoint : std::ranges::reverse_view(missing)) {
            const bool isCovered = std::any_of(kept.begin(), kept.end(), [&endpoint](const auto& acceptor) {
                return acceptor->Covers(endpoint);
            });
            if (isCovered) continue;
            if (auto acceptor = OpenSocket(endpoint, open)) {
                open.acceptors.push_back(acceptor);
                kept.push_back(std::move(acceptor));
            }
        }
        if (kept.empty()) {
            throw std::runtime_error("this machine has none of the addresses of port " +
                                     std::to_string(open.port->Number()));
        }
    } catch (...) {
        // What was there before stays.
        for (; open.acceptors.size() > before; open.acceptors.pop_back())
            open.acceptors.back()->CloseAndWait();
        throw;
    }
    for (const auto& acceptor : surplus) acceptor->CloseAndWait();
    open.acceptors = std::move(kept);
}

void CHostServer::Accept(CLoop& loop, CAcceptor::Socket socket, const std::shared_ptr<CPort>& port) {
    boost::system::error_code error;
    const auto peer = socket.remote_endpoint(error);
    if (error) return;  // it has left already
    const auto limits = Limits();
    auto key = m_admissions->Admit(peer.address(), {limits->connections, limits->connectionsPerAddress});
    if (!key) return;
    auto connection = std::make_shared<CConnection>(loop, std::move(socket), port,
                                                    CAdmission(m_admissions, std::move(*key)));
    loop.Post([this, connection = std::move(connection), limits] {
        const bool isTls = connection->Port().GetScheme() == CPort::Scheme::Https;
        connection->Start(std::make_unique<CHttp1>(*connection, limits), isTls ? &m_tls : nullptr);
    });
}

}  // namespace quorbel
