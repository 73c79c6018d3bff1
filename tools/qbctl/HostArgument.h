#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quorbel {

/// The hosts are subkeys, named as the hosts are, of this key under HKEY_LOCAL_MACHINE.
inline constexpr std::wstring_view kHostsKey = L"Software\\Quorbel\\Quorbel HTTP Service\\Hosts";

/// A DNS name or IPv4 address, an IPv6 address in brackets, or a name that takes every host ("*", "+").
bool IsHostName(std::wstring_view name);

/// The decimal number, when it lies in that range; 0 and above.
std::optional<int> ParseNumber(std::wstring_view typed, int least, int most);

struct CHostArgument {
    std::wstring host;  ///< lower case
    std::optional<int> port;

    /// HOST:PORT, for what has a port.
    std::wstring Name() const { return host + L':' + std::to_wstring(port.value_or(0)); }
};

/// What HOST or HOST:PORT means; none when it is neither.
std::optional<CHostArgument> ParseHostAndPort(std::wstring_view typed);

}  // namespace quorbel
