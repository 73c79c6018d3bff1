#include "LibService/TraceSettings.h"

#include "platform/LocalPath.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

constexpr const char* kDefaultFolder = "QuorbelLog";

std::wstring TextValue(const IKey& key, std::wstring_view name) {
    const auto value = key.Query(name);
    if (!value.IsOk()) return {};
    const ValueType type = value.Value().type;
    return type == ValueType::Text || type == ValueType::ExpandableText ? value.Value().AsText() : L"";
}

std::optional<std::uint32_t> NumberValue(const IKey& key, std::wstring_view name) {
    const auto value = key.Query(name);
    if (!value.IsOk() || value.Value().type != ValueType::Number32) return std::nullopt;
    return value.Value().AsNumber32();
}

/// A folder as it is stored; "\QuorbelLog" is the default's own name.
std::filesystem::path FolderFrom(const std::wstring& stored, const std::filesystem::path& root) {
    if (stored.empty() || stored == L"\\" + FromUtf8(kDefaultFolder)) return root / kDefaultFolder;
    const auto local = ToLocalPath(stored);
    if (!local.IsOk()) return root / kDefaultFolder;
    return root / std::filesystem::path(local.Value());  // an absolute path stands alone
}

}  // namespace

CTraceSettings CTraceSettings::Read(const IKey& localMachine, std::wstring_view displayName,
                                    const std::filesystem::path& root) {
    CTraceSettings settings;
    settings.folder = root / kDefaultFolder;
    const auto key =
        localMachine.Open(std::wstring(L"Software\\Quorbel\\").append(displayName), KeyAccess::Read);
    if (!key.IsOk()) return settings;
    settings.folder = FolderFrom(TextValue(*key.Value(), L"Log file directory"), root);
    if (const auto mask = NumberValue(*key.Value(), L"Log level")) settings.mask = CTraceLevelMask(*mask);
    settings.span = NumberValue(*key.Value(), L"Log size").value_or(settings.span);
    settings.administrators = ToUtf8(TextValue(*key.Value(), L"Administrators"));
    return settings;
}

CStatus LoadTraceModule(CServiceLogger& trace, const IKey& localMachine, std::wstring_view serviceName,
                        const std::filesystem::path& programFolder) {
    const std::string name = "Trc" + ToUtf8(serviceName) + ".dll";
    CStatus status = trace.LoadMessages(programFolder / name);
    if (status.IsOk()) return status;
    const auto key = localMachine.Open(L"SOFTWARE\\Quorbel\\COM API", KeyAccess::Read);
    const std::wstring installed = key.IsOk() ? TextValue(*key.Value(), L"installed") : L"";
    if (installed.empty()) return status;
    const auto local = ToLocalPath(installed + FromUtf8(name));
    if (!local.IsOk()) return SystemError(local.Error(), installed);
    return trace.LoadMessages(local.Value());
}

}  // namespace quorbel
