#pragma once

#include <string>

#include "platform/Event.h"

namespace quorbel {

/// Whether a window was shown.
enum class DialogOutcome {
    Closed,     ///< it was, and the user (or the event) closed it
    NoDisplay,  ///< no display opens, or nothing is installed that could draw a window
};

/// The two windows that belong to the command line. Each call returns when its window was closed.
class IServiceDialogs {
 public:
    virtual ~IServiceDialogs() = default;
    /// The activity of the service of that name; also closed when `close` (manual reset) is set.
    virtual DialogOutcome ShowActivity(const std::wstring& serviceName, CEvent& close) = 0;
    /// Which parameters there are; `parameter` is the one that is not, without its "-" or "/".
    virtual DialogOutcome ShowInvalidParameter(const std::wstring& parameter) = 0;
};

}  // namespace quorbel
