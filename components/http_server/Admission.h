#pragma once

#include <boost/asio/ip/address.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/Lock.h"

namespace quorbel {

/// The address of an IPv4 client as such, also when it came by a socket for both kinds of address.
boost::asio::ip::address Unmapped(const boost::asio::ip::address& address);

/// Counts the open connections, in all and by address: an IPv4 address, or the /64 of an IPv6 address, is
/// one. Loopback addresses are counted in the total only. Safe to use from any thread.
class CAdmissions {
 public:
    struct CBounds {
        std::size_t total;
        std::size_t perAddress;
    };
    /// Counts a further connection from the address when it is admitted: the key by which to release it,
    /// which is empty for a loopback address. None otherwise.
    std::optional<std::string> Admit(const boost::asio::ip::address& address, const CBounds& bounds);
    void Release(const std::string& key) noexcept;
    /// Waits until no connection is open, but no longer.
    void WaitUntilNone(std::chrono::milliseconds longest);

 private:
    CMutex m_lock{LockRank::Innermost};  // guards what follows
    std::condition_variable_any m_isEmpty;
    std::size_t m_total = 0;
    std::map<std::string, std::size_t> m_byAddress;
};

/// A connection's place among those that are admitted, kept for the object's life.
class CAdmission {
 public:
    CAdmission(std::shared_ptr<CAdmissions> admissions, std::string key) noexcept
        : m_admissions(std::move(admissions)), m_key(std::move(key)) {}
    ~CAdmission() {
        if (m_admissions) m_admissions->Release(m_key);
    }
    CAdmission(CAdmission&&) noexcept = default;
    CAdmission& operator=(CAdmission&&) = delete;

 private:
    std::shared_ptr<CAdmissions> m_admissions;
    std::string m_key;
};

}  // namespace quorbel
