#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/Clock.h"
#include "platform/registry/Key.h"

namespace quorbel {

/// The HTTP engine under the HTTP library's listeners: while it lives, every listener that is opened is a
/// host of this server, http or https. At most one exists at a time. Hosts of a port share its sockets and
/// are told apart by the Host field, and for TLS by the server name as well (RFC 6066, section 3); "*" and
/// "+" take what no other host does. An open fails, with a sentence that says why, when the address is in
/// use, the name does not parse, the port serves the other scheme, the name is taken, or an https host has no
/// certificate.
///
/// From its creation on, continuations of the library's tasks run in place: what takes long says so
/// (Waiting.h) or runs on a scheduler of its own.
class IHttpServer {
 public:
    struct CEnvironment {
        std::shared_ptr<IKey> localMachine;  ///< bounds and certificates (Limits.h, Certificates.h)
        IClock& clock;
        /// Takes a sentence for the operator; from any thread.
        std::function<void(const std::wstring&)> report;
    };
    /// Starts the server; fails when threads or descriptors are lacking.
    static CResult<std::unique_ptr<IHttpServer>> Start(CEnvironment environment);

    /// Has continuations run in place already now. Start does so too, but not after the library's first task
    /// was made: it throws then.
    static void RunContinuationsInPlace();

    /// No listener is open any more. Idle connections are closed; replies under way may end within a
    /// documented time and are aborted then.
    virtual ~IHttpServer() = default;
};

}  // namespace quorbel
