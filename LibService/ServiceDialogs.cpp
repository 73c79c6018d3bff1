#include "LibService/ServiceDialogs.h"

#include "LibService/DisplayDialogs.h"
#include "platform/Root.h"
#include "platform/Thread.h"

namespace quorbel {

namespace {

constexpr const wchar_t* kDisplayLibrary = L"QbDisplay.so";

CResult<std::unique_ptr<CServiceApiClient>> ConnectUnderRoot(const std::wstring& serviceName) {
    const auto root = OpenRootFolder();
    if (!root.IsOk()) return root.Error();
    return CServiceApiClient::Connect(root.Value(), serviceName);
}

}  // namespace

std::unique_ptr<IServiceDialogs> CreateServiceDialogs() {
    return std::make_unique<CDisplayDialogs>(kDisplayLibrary,
                                             CDisplayServices{StartThread, ConnectUnderRoot});
}

}  // namespace quorbel
