#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "platform/messages/MessageModule.h"

using namespace quorbel;

/// Any bytes as a message catalogue: whatever is read can be formatted with any number of inserts.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto module = CMessageModule::Parse({reinterpret_cast<const char*>(data), size});
    if (!module.IsOk()) return 0;
    const std::vector<std::wstring> inserts{L"one", L"%2", L""};
    for (const std::uint32_t id : module.Value()->Identifiers()) {
        if (!module.Value()->Find(id) || module.Value()->InsertCount(id) > 99) std::abort();
        if (!module.Value()->Format(id, inserts) || !module.Value()->Format(id, {})) std::abort();
    }
    return 0;
}
