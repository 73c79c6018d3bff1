#include "components/http_server/Admission.h"

namespace quorbel {

namespace {

std::string KeyOf(const boost::asio::ip::address& address) {
    if (address.is_loopback()) return {};
    if (address.is_v4()) return address.to_string();
    const auto bytes = address.to_v6().to_bytes();
    return {bytes.begin(), bytes.begin() + 8};
}

}  // namespace

boost::asio::ip::address Unmapped(const boost::asio::ip::address& address) {
    if (!address.is_v6() || !address.to_v6().is_v4_mapped()) return address;
    return boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, address.to_v6());
}

std::optional<std::string> CAdmissions::Admit(const boost::asio::ip::address& address,
                                              const CBounds& bounds) {
    std::string key = KeyOf(Unmapped(address));
    const std::lock_guard lock(m_lock);
    if (m_total >= bounds.total) return std::nullopt;
    if (!key.empty()) {
        std::size_t& count = m_byAddress[key];
        if (count >= bounds.perAddress) return std::nullopt;
        ++count;
    }
    ++m_total;
    return key;
}

void CAdmissions::Release(const std::string& key) noexcept {
    const std::lock_guard lock(m_lock);
    if (--m_total == 0) m_isEmpty.notify_all();
    if (key.empty()) return;
    const auto found = m_byAddress.find(key);
    if (--found->second == 0) m_byAddress.erase(found);
}

void CAdmissions::WaitUntilNone(std::chrono::milliseconds longest) {
    std::unique_lock lock(m_lock);
    m_isEmpty.wait_for(lock, longest, [this] { return m_total == 0; });
}

}  // namespace quorbel
