#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "platform/registry/Key.h"

namespace quorbel {

/// The bounds within which clients are served: 32-bit numbers of the key below, each read at the start and
/// whenever the key changes. docs/configuration.md has them all.
struct CHttpLimits {
    static constexpr wchar_t kKey[] = L"SYSTEM\\CurrentControlSet\\Services\\HTTP\\Parameters";

    std::uint32_t requestLineBytes = 8192;  ///< a longer request line is answered 414
    std::uint32_t headerBytes = 32768;      ///< all header fields together; more is answered 431
    std::uint32_t headerFields = 100;       ///< more is answered 431
    std::uint32_t bodyBytes = 1048576;      ///< a longer body is answered 413
    std::uint32_t headSeconds = 10;  ///< from a request's first byte (or the connection) to its head's last
    std::uint32_t bodyBytesPerSecond = 1024;  ///< slower bodies are answered 408, once 10 seconds have passed
    std::uint32_t sendBytesPerSecond =
        512;                         ///< a client that takes less on an average of sendSeconds is cut off
    std::uint32_t sendSeconds = 20;  ///< see there
    std::uint32_t keepAliveSeconds = 60;  ///< a connection without request is closed
    std::uint32_t connections = 20000;    ///< more are closed as they come
    std::uint32_t connectionsPerAddress =
        256;                                ///< from one IPv4 address or /64 of IPv6; loopback is not counted
    std::uint32_t sendBufferBytes = 65536;  ///< of a reply, held in memory for one connection
    std::uint32_t waitingHandlers = 2048;   ///< that many requests may wait (for a disk, a query) at a time
    std::uint32_t drainBytes = 65536;       ///< read and dropped of what a client sends after the last reply
    std::uint32_t drainSeconds = 1;         ///< for so long
    std::uint32_t stopSeconds = 10;         ///< running replies are cut off that long after a stop

    /// The values of the key; those that are missing have their defaults. A value of another type or out of
    /// its range is told to `report` and taken for missing.
    static CHttpLimits Read(const IKey& localMachine, const std::function<void(const std::wstring&)>& report);

    /// A value's name in the registry, its place here and the numbers that make sense.
    struct CValueRange {
        const wchar_t* name;
        std::uint32_t CHttpLimits::*member;
        std::uint32_t least;
        std::uint32_t most;
    };
    static std::span<const CValueRange> Values() noexcept;
};

}  // namespace quorbel
