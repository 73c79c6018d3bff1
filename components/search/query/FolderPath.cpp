#include "components/search/query/FolderPath.h"

#include <vector>

#include "platform/Text.h"

namespace quorbel {

std::optional<std::string> SearchFolderPath(std::wstring_view folder) {
    constexpr std::wstring_view kScheme = L"file:";
    constexpr std::wstring_view kSeparators = L"/\\";
    if (StartsWithNoCase(folder, kScheme)) folder.remove_prefix(kScheme.size());
    if (folder.empty() || kSeparators.find(folder.front()) == std::wstring_view::npos) return std::nullopt;
    if (folder.find(L'\0') != std::wstring_view::npos) return std::nullopt;
    std::vector<std::wstring_view> segments;
    while (!folder.empty()) {
        const std::wstring_view segment = folder.substr(0, folder.find_first_of(kSeparators));
        folder.remove_prefix(std::min(segment.size() + 1, folder.size()));
        if (segment == L"..") {
            if (!segments.empty()) segments.pop_back();
        } else if (!segment.empty() && segment != L".") {
            segments.push_back(segment);
        }
    }
    std::string path;
    for (const std::wstring_view segment : segments) path += "/" + ToUtf8(segment);
    return path;
}

}  // namespace quorbel
