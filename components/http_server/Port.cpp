#include "components/http_server/Port.h"

#include "components/http_server/HostName.h"

namespace quorbel {

CHost::CHost(std::string name, Listener& listener, std::shared_ptr<const CCertificates::CBinding> binding)
    : m_name(std::move(name)),
      m_isLoopback(IsLoopbackHost(m_name)),
      m_listener(listener),
      m_binding(std::move(binding)) {}

bool CHost::Handle(const web::http::http_request& request) {
    const CGatePass pass(m_gate);
    if (pass.IsInside()) m_listener.handle_request(request);
    return pass.IsInside();
}

bool CPort::Add(std::shared_ptr<CHost> host) {
    const std::lock_guard lock(m_lock);
    ++m_generation;
    const std::string name = host->Name();
    return m_hosts.emplace(name, std::move(host)).second;
}

void CPort::Remove(const CHost& host) {
    const std::lock_guard lock(m_lock);
    ++m_generation;
    m_hosts.erase(host.Name());
}

std::vector<std::shared_ptr<CHost>> CPort::Hosts() const {
    const std::lock_guard lock(m_lock);
    std::vector<std::shared_ptr<CHost>> hosts;
    for (const auto& [name, host] : m_hosts) hosts.push_back(host);
    return hosts;
}

std::shared_ptr<CHost> CPort::FindLocked(const std::string& name, Reached reached) const {
    const auto isReachable = [reached](const CHost& host) {
        return reached == Reached::FromHere || !host.IsLoopback();
    };
    if (const auto found = m_hosts.find(name); found != m_hosts.end() && isReachable(*found->second)) {
        return found->second;
    }
    for (const char* wildcard : {"+", "*"}) {
        if (const auto found = m_hosts.find(wildcard); found != m_hosts.end()) return found->second;
    }
    if (name.empty() && m_hosts.size() == 1 && isReachable(*m_hosts.begin()->second)) {
        return m_hosts.begin()->second;
    }
    return nullptr;
}

std::shared_ptr<CHost> CPort::Find(const std::string& name, Reached reached) const {
    const std::lock_guard lock(m_lock);
    // A wildcard's own name is nobody's.
    return FindLocked(name == "*" || name == "+" ? std::string("?") : name, reached);
}

std::shared_ptr<const CTlsCertificate> CPort::ChooseCertificate(const std::string& serverName,
                                                                const std::string& localAddress,
                                                                Reached reached) const {
    std::shared_ptr<CHost> host;
    {
        const std::lock_guard lock(m_lock);
        if (m_hosts.empty()) return nullptr;
        host = FindLocked(serverName.empty() ? localAddress : serverName, reached);
        if (!host) host = m_hosts.begin()->second;
    }
    return CCertificates::Current(host->Binding());
}

}  // namespace quorbel
