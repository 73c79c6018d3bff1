#pragma once

#include <memory>
#include <string>

#include "platform/Event.h"

namespace quorbel {

/// Whether a window was shown.
enum class DialogOutcome {
    Closed,     ///< it was, and the user (or the event) closed it
    NoDisplay,  ///< no display opens, nothing is installed that could draw a window, or the display failed
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

/// The windows of the display library beside the program, which is loaded when one is shown. Made before
/// there are other threads (it makes a component known), and destroyed when they have ended; shows windows on
/// one thread, which is the program's first one where a toolkit asks for that.
std::unique_ptr<IServiceDialogs> CreateServiceDialogs();

}  // namespace quorbel
