#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quorbel {

/// True for host[:port] (RFC 3986, section 3.2, without user information): a name, an IPv4 address or an IPv6
/// address in brackets; the port is 0 to 65535 or empty.
bool IsAuthority(std::string_view text) noexcept;

/// A host's name in the one form by which names compare: lower case, without port, brackets or a final dot;
/// an IPv6 address in its shortest form. `text` is a valid authority.
std::string CanonicalHost(std::string_view text);

/// "localhost" and what ends with ".localhost", and the addresses 127.0.0.0/8 and ::1. `host` is canonical.
bool IsLoopbackHost(std::string_view host) noexcept;

}  // namespace quorbel
