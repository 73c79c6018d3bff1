#pragma once

#include <atomic>
#include <cpprest/http_listener.h>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "components/http_server/Certificates.h"
#include "components/http_server/Limits.h"
#include "platform/Gate.h"
#include "platform/Lock.h"

namespace quorbel {

/// One host on one port: a listener of the HTTP library. Safe to use from any thread.
class CHost {
 public:
    using Listener = web::http::experimental::listener::details::http_listener_impl;

    /// `name` is canonical (HostName.h), or "*" or "+". `binding` is none for http.
    CHost(std::string name, Listener& listener, std::shared_ptr<const CCertificates::CBinding> binding);

    const std::string& Name() const noexcept { return m_name; }
    bool IsWildcard() const noexcept { return m_name == "*" || m_name == "+"; }
    bool IsLoopback() const noexcept { return m_isLoopback; }
    const CCertificates::CBinding& Binding() const noexcept { return *m_binding; }

    /// Hands a request to the listener; false when it has gone.
    bool Handle(const web::http::http_request& request);
    /// From now on the listener gets no request; waits until those end that it is handling.
    void CloseAndWait() {
        m_isClosing = true;
        m_gate.CloseAndWait();
    }
    bool IsClosing() const noexcept { return m_isClosing.load(std::memory_order_relaxed); }

 private:
    const std::string m_name;
    const bool m_isLoopback;
    Listener& m_listener;  // as long as the gate is open
    const std::shared_ptr<const CCertificates::CBinding> m_binding;
    std::atomic<bool> m_isClosing{false};
    CGate m_gate;
};

/// The hosts that share a port, and which of them is meant. Safe to use from any thread.
class CPort {
 public:
    enum class Scheme { Http, Https };

    CPort(int number, Scheme scheme) noexcept : m_number(number), m_scheme(scheme) {}

    int Number() const noexcept { return m_number; }
    Scheme GetScheme() const noexcept { return m_scheme; }

    /// False when a host of that name is there already.
    bool Add(std::shared_ptr<CHost> host);
    void Remove(const CHost& host);
    std::vector<std::shared_ptr<CHost>> Hosts() const;
    /// Another number whenever hosts were added or removed.
    std::uint64_t Generation() const noexcept { return m_generation.load(); }

    /// No host is left, or the server stops: connections end.
    void Close() noexcept { m_isClosed = true; }
    bool IsClosed() const noexcept { return m_isClosed.load(std::memory_order_relaxed); }

    /// How a connection reached the port.
    enum class Reached { FromHere, FromOutside };
    /// The host of that canonical name, else the one that takes all names; none when there is neither. Hosts
    /// on the loopback are not found from outside. An empty name means that none was given: the only host
    /// then serves too.
    std::shared_ptr<CHost> Find(const std::string& name, Reached reached) const;
    /// The certificate to show to a client that asks for `serverName` (may be empty) at `localAddress`; some
    /// host's, so that a name that nobody serves can be answered. None when the port has no host any more.
    std::shared_ptr<const CTlsCertificate> ChooseCertificate(const std::string& serverName,
                                                             const std::string& localAddress,
                                                             Reached reached) const;

 private:
    using HostMap = std::map<std::string, std::shared_ptr<CHost>, std::less<>>;
    std::shared_ptr<CHost> FindLocked(const std::string& name, Reached reached) const;

    const int m_number;
    const Scheme m_scheme;
    std::atomic<std::uint64_t> m_generation{1};
    std::atomic<bool> m_isClosed{false};
    mutable CMutex m_lock{LockRank::Innermost};  // guards:
    HostMap m_hosts;
};

}  // namespace quorbel
