#pragma once

#include <string>
#include <vector>

#include "components/http_server/Limits.h"

namespace quorbel {

/// What a client sends on a new connection to the host "localhost", and what comes of it.
struct CRawRequest {
    /// In order: "METHOD target body" for a request that reaches the handler (answered 200), a status for one
    /// that does not, and at last kCloses or kWaits unless the next request is welcome.
    using Events = std::vector<std::string>;
    static constexpr char kCloses[] = "closes";
    static constexpr char kWaits[] = "waits";  ///< the request goes on

    std::string family;
    std::string bytes;
    Events events;

    bool Waits() const { return !events.empty() && events.back() == kWaits; }
    /// The family and the bytes, to be shown.
    std::string Name() const;
};

/// Requests of every family that RFC 9110 and RFC 9112 let through or have refused, under RawRequestLimits.
const std::vector<CRawRequest>& RawRequests();
/// Small ones, so that requests beyond them can be cut at every byte.
inline CHttpLimits RawRequestLimits() {
    CHttpLimits limits;
    limits.requestLineBytes = 128;
    limits.headerBytes = 512;
    limits.headerFields = 20;
    limits.bodyBytes = 1000;
    return limits;
}

}  // namespace quorbel
