#include "LibService/api/ServiceApiMessages.h"

#include "platform/Text.h"

namespace quorbel::service_api {

std::string PipeName(std::wstring_view serviceName) {
    return "Quorbel." + ToUtf8(serviceName);
}

std::uint64_t Get(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t size) noexcept {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < size; ++i) number |= std::uint64_t{bytes[offset + i]} << 8 * i;
    return number;
}

void Put(std::span<std::uint8_t> bytes, std::size_t offset, std::uint64_t number, std::size_t size) noexcept {
    for (std::size_t i = 0; i < size; ++i, number >>= 8)
        bytes[offset + i] = static_cast<std::uint8_t>(number);
}

}  // namespace quorbel::service_api
