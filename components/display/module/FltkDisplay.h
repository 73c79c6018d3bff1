#pragma once

#include "components/display/Display.h"

namespace quorbel {

/// The toolkit's display.
class CFltkDisplay final : public IDisplayLibrary {
 public:
    /// The one of this process, opened by the first call that can; null when no display opens.
    static CFltkDisplay* Open(const CDisplayServices& services);

    std::optional<int> Run(const CDialogTemplate& layout, const CHostedControls& controls,
                           IDialogEvents& events, CEvent* close) override;
    HRESULT Create(const GUID& classId, const GUID& interfaceId, void** object) override;

 private:
    CDisplayServices m_services;
};

}  // namespace quorbel
