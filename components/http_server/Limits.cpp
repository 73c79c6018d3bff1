#include "components/http_server/Limits.h"

#include <array>

namespace quorbel {

namespace {

constexpr std::uint32_t kMost = 0x7FFFFFFF;

constexpr std::array<CHttpLimits::CValueRange, 16> kValues{{
    {L"MaxRequestLineBytes", &CHttpLimits::requestLineBytes, 64, 1 << 20},
    {L"MaxHeaderBytes", &CHttpLimits::headerBytes, 256, 1 << 20},
    {L"MaxHeaderFields", &CHttpLimits::headerFields, 1, 10000},
    {L"MaxBodyBytes", &CHttpLimits::bodyBytes, 0, kMost},
    {L"HeadTimeoutSeconds", &CHttpLimits::headSeconds, 1, 3600},
    {L"MinBodyBytesPerSecond", &CHttpLimits::bodyBytesPerSecond, 1, kMost},
    {L"MinSendBytesPerSecond", &CHttpLimits::sendBytesPerSecond, 1, kMost},
    {L"SendTimeoutSeconds", &CHttpLimits::sendSeconds, 1, 3600},
    {L"KeepAliveSeconds", &CHttpLimits::keepAliveSeconds, 1, 86400},
    {L"MaxConnections", &CHttpLimits::connections, 1, 1 << 20},
    {L"MaxConnectionsPerAddress", &CHttpLimits::connectionsPerAddress, 1, 1 << 20},
    {L"MaxSendBufferBytes", &CHttpLimits::sendBufferBytes, 16384, 1 << 26},
    {L"MaxWaitingHandlers", &CHttpLimits::waitingHandlers, 1, 4096},
    {L"MaxDrainBytes", &CHttpLimits::drainBytes, 0, 1 << 30},
    {L"DrainSeconds", &CHttpLimits::drainSeconds, 0, 3600},
    {L"StopTimeoutSeconds", &CHttpLimits::stopSeconds, 0, 3600},
}};

}  // namespace

std::span<const CHttpLimits::CValueRange> CHttpLimits::Values() noexcept {
    return kValues;
}

CHttpLimits CHttpLimits::Read(const IKey& localMachine,
                              const std::function<void(const std::wstring&)>& report) {
    CHttpLimits limits;
    const auto key = localMachine.Open(kKey, KeyAccess::Read);
    if (!key.IsOk()) return limits;
    for (const CValueRange& value : kValues) {
        const auto found = key.Value()->Query(value.name);
        if (!found.IsOk()) continue;
        const auto number = found.Value().AsNumber32();
        if (found.Value().type == ValueType::Number32 && number && *number >= value.least &&
            *number <= value.most) {
            limits.*value.member = *number;
        } else {
            report(std::wstring(value.name) + L" below HKLM\\" + kKey + L" must be a 32-bit number from " +
                   std::to_wstring(value.least) + L" to " + std::to_wstring(value.most) + L"; " +
                   std::to_wstring(limits.*value.member) + L" is used.");
        }
    }
    return limits;
}

}  // namespace quorbel
