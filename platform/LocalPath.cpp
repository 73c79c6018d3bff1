#include "platform/LocalPath.h"

#include "platform/Text.h"

namespace quorbel {

namespace {

constexpr std::wstring_view kVerbatimPrefix = LR"(\\?\)";

bool BeginsAtLocalRoot(std::wstring_view path) noexcept {
    return path.size() >= 3 && path.starts_with(L"0:") && IsSeparator(path[2]);
}

/// A file or folder name may hold the mark itself: only the last one, in the last segment, begins a revision.
std::wstring_view WithoutRevision(std::wstring_view path) noexcept {
    const auto mark = path.rfind(kRevisionMark);
    if (mark == path.npos || path.find_first_of(L"/\\", mark) != path.npos) return path;
    return path.substr(0, mark);
}

}  // namespace

CResult<std::string> ToLocalPath(std::wstring_view path) {
    if (path.starts_with(kVerbatimPrefix)) path.remove_prefix(kVerbatimPrefix.size());
    if (BeginsAtLocalRoot(path)) path = WithoutRevision(path.substr(2));
    if (path.empty()) return ErrorCode::PathNotFound;
    if (path.find(L'\0') != path.npos) return ErrorCode::InvalidName;
    std::string local = ToUtf8(path);
    if (FromUtf8(local) != path) return ErrorCode::InvalidName;
    std::replace(local.begin(), local.end(), '\\', '/');
    return local;
}

}  // namespace quorbel
