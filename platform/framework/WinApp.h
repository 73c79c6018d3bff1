#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/com/Apartment.h"

namespace quorbel {

/// The process's one application object: what the framework does before and after the application's own work.
/// Everything but Instance is for the main thread.
class CWinApp {
 public:
    /// Precondition: there is no other application object.
    explicit CWinApp(std::vector<std::wstring> parameters);
    virtual ~CWinApp();
    CWinApp(const CWinApp&) = delete;
    CWinApp& operator=(const CWinApp&) = delete;

    /// The application object; null when there is none.
    static CWinApp* Instance() noexcept;

    /// The application's life: InitInstance, then ExitInstance. The process's exit code.
    int Execute();

    /// The application's work, to its end.
    virtual void InitInstance() = 0;
    /// Ends the framework's part; the exit code.
    virtual int ExitInstance();

 protected:
    const std::vector<std::wstring>& Parameters() const noexcept { return m_parameters; }
    /// Enters the apartment of COM; it is left in ExitInstance. False when that is not possible.
    bool InitialiseFramework();

 private:
    const std::vector<std::wstring> m_parameters;
    std::optional<CComApartment> m_apartment;
};

/// Makes text of the user's language the process's: characters, order and messages, but not how numbers and
/// dates are written, which programs read.
void UseLocaleOfUser() noexcept;

}  // namespace quorbel
