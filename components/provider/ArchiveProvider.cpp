#include "components/provider/ArchiveProvider.h"

#include "components/provider/DatabaseSettings.h"
#include "components/provider/ProviderSource.h"

namespace quorbel {

namespace {

constexpr GUID kClass{0x5B7E3A0C, 0x6F1D, 0x4C52, {0x9A, 0x37, 0xD1, 0x84, 0x2E, 0xC0, 0x9B, 0x6F}};
constexpr wchar_t kProgramName[] = L"Quorbel.OLEDBProvider";

}  // namespace

CComRegistration RegisterArchiveProvider(std::shared_ptr<IKey> localMachine) {
    auto settings = std::make_shared<CDatabaseSettings>(std::move(localMachine));
    return {kClass, kProgramName, [settings](const GUID& interfaceId, void** object) {
                const CComPtr<CProviderSource> source(new CProviderSource(settings));
                return source->QueryInterface(interfaceId, object);
            }};
}

}  // namespace quorbel
