#include "platform/registry/Names.h"

namespace quorbel {

namespace {

bool IsNameCharacter(wchar_t character) noexcept {
    const auto point = static_cast<std::uint32_t>(character);
    const bool control = point < 0x20 || point == 0x7F;
    const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
    return !control && !surrogate && point <= 0x10FFFF;
}

ErrorCode CheckName(std::wstring_view name, std::size_t longest) noexcept {
    if (name.size() > longest) return ErrorCode::FilenameExcedsRange;
    if (!std::all_of(name.begin(), name.end(), IsNameCharacter)) return ErrorCode::InvalidName;
    return ErrorCode::Success;
}

}  // namespace

ErrorCode CheckValueName(std::wstring_view name) noexcept {
    return CheckName(name, kLongestValueName);
}

CResult<std::vector<std::wstring_view>> SplitKeyPath(std::wstring_view path) {
    std::vector<std::wstring_view> names;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find(L'\\'), path.size());
        const std::wstring_view name = path.substr(0, end);
        const ErrorCode error = CheckName(name, kLongestKeyName);
        if (error != ErrorCode::Success) return error;
        if (!name.empty()) names.push_back(name);
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return names;
}

}  // namespace quorbel
