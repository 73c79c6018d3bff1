#pragma once

#include "LibService/Status.h"

namespace quorbel {

/// Where events are shown beside where they are kept.
enum class EventDisplay { None, StandardError };

/// What has to stand before a service's work can begin. The operations are called once each, in this order,
/// from one thread.
class IServicePreparation {
 public:
    virtual ~IServicePreparation() = default;
    /// Gives events the place where they are kept. A second call does nothing.
    virtual CStatus OpenEventLog(EventDisplay display) = 0;
    /// Registers the source of the service's events.
    virtual CStatus RegisterEventSource() = 0;
    /// Prepares the trace logger and whatever reports crashes.
    virtual CStatus SetUpTracing() = 0;
};

}  // namespace quorbel
