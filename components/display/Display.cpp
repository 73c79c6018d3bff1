#include "components/display/Display.h"

#include "platform/Library.h"

namespace quorbel {

CDisplay::CDisplay(std::wstring library, CDisplayServices services)
    : m_library(std::move(library)),
      m_services(std::move(services)),
      m_control(kActivityDisplayClass, [this](const GUID& interfaceId, void** object) {
          if (!Open()) return REGDB_E_CLASSNOTREG;
          return m_opened->Create(kActivityDisplayClass, interfaceId, object);
      }) {}

IDialogDisplay* CDisplay::Open() {
    if (m_opened) return m_opened;
    const auto library = CLibrary::Load(m_library);
    if (!library.IsOk()) return nullptr;
    const auto entry = library.Value().Find(kDisplayEntry);
    if (!entry.IsOk()) return nullptr;
    m_opened = reinterpret_cast<DisplayEntry*>(entry.Value())(kDisplayVersion, m_services);
    return m_opened;
}

}  // namespace quorbel
