#include "components/http_server/HostName.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>

#include "platform/Text.h"

namespace quorbel {

namespace {

bool IsDigit(char character) noexcept {
    return character >= '0' && character <= '9';
}

bool IsHexDigit(char character) noexcept {
    return HexDigit(static_cast<unsigned char>(character)) >= 0;
}

bool IsNameCharacter(char character) noexcept {
    return IsDigit(character) || (character >= 'a' && character <= 'z') ||
           (character >= 'A' && character <= 'Z') ||
           std::string_view("-._~!$&'()*+,;=").find(character) != std::string_view::npos;
}

bool IsName(std::string_view text) noexcept {
    if (text.empty()) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (IsNameCharacter(text[i])) continue;
        if (text[i] != '%' || text.size() - i < 3 || !IsHexDigit(text[i + 1]) || !IsHexDigit(text[i + 2])) {
            return false;
        }
        i += 2;
    }
    return true;
}

bool IsPort(std::string_view text) noexcept {
    int port = 0;
    for (char character : text) {
        if (!IsDigit(character)) return false;
        port = std::min(port * 10 + (character - '0'), 1 << 20);
    }
    return port <= 65535;
}

/// The address in its shortest form; none when it is no IPv6 address.
std::optional<std::string> ShortestIpv6(std::string_view text) {
    in6_addr address{};
    if (::inet_pton(AF_INET6, std::string(text).c_str(), &address) != 1) return std::nullopt;
    std::array<char, INET6_ADDRSTRLEN> shortest{};
    ::inet_ntop(AF_INET6, &address, shortest.data(), shortest.size());
    return shortest.data();
}

}  // namespace

bool IsAuthority(std::string_view text) noexcept {
    std::size_t end = text.find(':');
    if (text.starts_with('[')) {
        end = text.find(']');
        if (end == std::string_view::npos || end > INET6_ADDRSTRLEN) return false;
        if (!ShortestIpv6(text.substr(1, end - 1))) return false;
        ++end;
        if (end < text.size() && text[end] != ':') return false;
    } else if (!IsName(text.substr(0, end))) {
        return false;
    }
    return end >= text.size() || IsPort(text.substr(end + 1));
}

std::string CanonicalHost(std::string_view text) {
    if (text.starts_with('[')) {
        const std::string_view address = text.substr(1, text.find(']') - 1);
        return ShortestIpv6(address).value_or(std::string(address));
    }
    std::string host(text.substr(0, text.find(':')));
    std::transform(host.begin(), host.end(), host.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character + 32) : character;
    });
    if (host.size() > 1 && host.ends_with('.')) host.pop_back();
    return host;
}

bool IsLoopbackHost(std::string_view host) noexcept {
    if (host == "localhost" || host.ends_with(".localhost") || host == "::1") return true;
    in_addr address{};
    return ::inet_pton(AF_INET, std::string(host).c_str(), &address) == 1 &&
           (ntohl(address.s_addr) >> 24) == 127;
}

}  // namespace quorbel
