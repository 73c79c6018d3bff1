// QbDisplay.so: the display of the service's windows.
#include <exception>

#include "components/display/module/FltkDisplay.h"

extern "C" quorbel::IDisplayLibrary* QbDisplayOpen(std::uint32_t version,
                                                   const quorbel::CDisplayServices& services) noexcept {
    if (version != quorbel::kDisplayVersion) return nullptr;
    try {
        return quorbel::CFltkDisplay::Open(services);
    } catch (const std::exception&) {  // out of memory, as everywhere in here
        return nullptr;
    }
}
