#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "LibService/api/ServiceApiClient.h"
#include "platform/com/ClassRegistry.h"
#include "platform/framework/DialogDisplay.h"

namespace quorbel {

/// The activity-display control: a list of a service's trace records as they come. By its automation
/// interface it has two methods of one text each: "MessageLib", the name of the trace message module beside
/// the program (without ".dll"), and "Connect", ":" and the name of a service under the root folder.
inline constexpr GUID kActivityDisplayClass{
    0xE1E73475, 0x6801, 0x4661, {0x81, 0x54, 0x79, 0xEB, 0x6E, 0x56, 0xB4, 0x6D}};

/// What the display's library takes from the program, so as not to hold a second copy of it.
struct CDisplayServices {
    /// Starts a thread of the program's own kind.
    std::function<CResult<std::thread>(const char* name, std::function<void()> work)> startThread;
    /// Connects to the service of that name.
    std::function<CResult<std::unique_ptr<CServiceApiClient>>(const std::wstring& serviceName)> connect;
};

/// What a display's library is to the program that loaded it. Lives until the process ends. For the thread
/// that shows windows.
class IDisplayLibrary : public IDialogDisplay {
 public:
    /// Creates an instance of a class of the library.
    virtual HRESULT Create(const GUID& classId, const GUID& interfaceId, void** object) = 0;
};

/// The entry of a display's library: gives null when `version` is not the one that the library was built for,
/// or no display opens. Keeps a copy of `services`, instead of the one that it had.
using DisplayEntry = IDisplayLibrary*(std::uint32_t version, const CDisplayServices& services);
inline constexpr const char* kDisplayEntry = "QbDisplayOpen";
inline constexpr std::uint32_t kDisplayVersion = 1;

/// The display that a library beside the program draws; the library is loaded when it is first asked for, so
/// that a program that shows no window never has a toolkit in it.
class CDisplay {
 public:
    /// Makes the library's controls known to this process.
    CDisplay(std::wstring library, CDisplayServices services);

    /// Null when the library is missing or broken, or no display opens; then another call tries again.
    IDialogDisplay* Open();

 private:
    const std::wstring m_library;
    const CDisplayServices m_services;
    IDisplayLibrary* m_opened = nullptr;
    const CComRegistration m_control;
};

}  // namespace quorbel
