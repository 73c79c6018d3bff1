#pragma once

#include "LibService/ServiceDialogs.h"

namespace quorbel {

/// For where nothing can be shown.
class CNoServiceDialogs final : public IServiceDialogs {
 public:
    DialogOutcome ShowActivity(const std::wstring& /*serviceName*/, CEvent& /*close*/) override {
        return DialogOutcome::NoDisplay;
    }
    DialogOutcome ShowInvalidParameter(const std::wstring& /*parameter*/) override {
        return DialogOutcome::NoDisplay;
    }
};

}  // namespace quorbel
