#pragma once

#include "components/display/module/Toolkit.h"
#include "platform/com/Com.h"

namespace quorbel {

/// What a control of this library is to the window that hosts it. For the thread that shows windows.
class IFltkControl : public IUnknown {
 public:
    static constexpr GUID kId{0x5C0A6D2E, 0x91B7, 0x4F0C, {0x8E, 0x2A, 0x3B, 0x57, 0xD4, 0x10, 0x6F, 0x93}};
    /// Makes the control's widget, of no group yet; it belongs to the control. Null when there is one
    /// already.
    virtual Fl_Widget* CreateWidget() = 0;
    virtual void DestroyWidget() = 0;

 protected:
    ~IFltkControl() = default;
};

}  // namespace quorbel
