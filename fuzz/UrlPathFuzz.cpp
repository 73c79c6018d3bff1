#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/UrlPath.h"

using namespace quorbel;

/// Any bytes as the path of a request: what is let through names nothing outside a folder and has one
/// canonical form.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view target(reinterpret_cast<const char*>(data), size);
    const auto parsed = CUrlPath::Parse(target);
    const auto* path = std::get_if<CUrlPath>(&parsed);
    if (!path) return 0;
    if (path->Text() != L"*" && !StaysWithin(L"", path->Text())) std::abort();
    if (path->Text().find_first_of(L"\\\n\r\x1B") != std::wstring::npos) std::abort();
    const std::string encoded = path->Encoded();
    if (encoded.size() > CUrlPath::kMaximumLength)
        return 0;  // encoding may take more bytes than the sender did
    const auto again = CUrlPath::Parse(encoded);
    const auto* same = std::get_if<CUrlPath>(&again);
    if (!same || same->Text() != path->Text()) std::abort();
    return 0;
}
