#include "http/HandlerFileSearch.h"

#include <algorithm>
#include <optional>

#include "http/FileRequestHandler.h"
#include "http/MIMEMap.h"
#include "http/RequestHandlerFactory.h"

namespace quorbel {

namespace {

/// The application prefix of a path: up to its second "/", if it has one.
std::optional<std::wstring> ApplicationPrefix(const std::wstring& path) {
    const std::size_t end = path.find(L'/', 1);
    if (path.size() < 2 || end == std::wstring::npos) return std::nullopt;
    return path.substr(0, end);
}

/// For a request of a stylesheet, the path that it belongs to: what stands before ".xslt", one character and
/// "GET" at the key's end, without regard to case.
std::optional<std::wstring_view> StylesheetOwner(std::wstring_view key) {
    constexpr std::wstring_view kExtension = L".xslt";
    constexpr std::wstring_view kMethod = L"GET";
    constexpr std::size_t kTail = kExtension.size() + 1 + kMethod.size();
    if (key.size() < kTail) return std::nullopt;
    const std::wstring_view tail = key.substr(key.size() - kTail);
    if (!StartsWithNoCase(tail, kExtension) || !EqualNoCase(tail.substr(kTail - kMethod.size()), kMethod)) {
        return std::nullopt;
    }
    return key.substr(0, key.size() - kTail);
}

}  // namespace

CHandlerFileSearch::Result CHandlerFileSearch::Find(const std::map<AccessLevel, std::wstring>& accessRoots,
                                                    const std::map<AccessLevel, TextMap>& webApplications,
                                                    AccessLevel level, const std::wstring& path,
                                                    const std::wstring& key) const {
    std::vector<Candidate> candidates;
    for (AccessLevel tried : kAccessLevels) {
        const auto root = accessRoots.find(tried);
        if (tried > level || root == accessRoots.end()) continue;
        candidates.push_back({root->second, key, CacheClass::Development});
    }
    const auto prefix = ApplicationPrefix(path);
    for (AccessLevel tried : kAccessLevels) {
        const auto applications = webApplications.find(tried);
        if (!prefix || tried > level || applications == webApplications.end()) continue;
        const auto application = applications->second.find(*prefix);
        if (application == applications->second.end()) continue;
        candidates.push_back(
            {application->second, std::wstring_view(key).substr(prefix->size()), CacheClass::Manifest});
    }
    Result result;
    for (const Candidate& candidate : candidates) {
        result.handler = FindBelow(candidate, result.mayBeKept);
        if (result.handler) break;
    }
    return result;
}

CHandlerFileSearch::Handler CHandlerFileSearch::CreateHandler(const Candidate& candidate,
                                                              const std::wstring& file) const {
    const std::size_t dot = file.rfind(L'.');
    if (dot == std::wstring::npos) return nullptr;
    const std::wstring kind = file.substr(dot + 1);
    if (const auto* create = CRequestHandlerFactory::Find(kind)) return (*create)(candidate.folder, file);
    return std::make_shared<CFileRequestHandler>(m_files, file, CMIMEMap::Instance().GetContentType(kind),
                                                 L"", candidate.cacheClass, CFileRequestHandler::kNoRangeCap);
}

CHandlerFileSearch::Handler CHandlerFileSearch::FindBelow(const Candidate& candidate, bool& mayBeKept) const {
    std::wstring pattern = candidate.folder + std::wstring(candidate.searched) + L"*";
    std::replace(pattern.begin(), pattern.end(), L'/', L'\\');
    const std::wstring folder = pattern.substr(0, pattern.rfind(L'\\') + 1);
    for (const std::wstring& name : Match(candidate, pattern, mayBeKept).names) {
        if (auto handler = CreateHandler(candidate, folder + name)) return handler;
    }
    return nullptr;
}

CFolderMatches CHandlerFileSearch::Match(const Candidate& candidate, const std::wstring& pattern,
                                         bool& mayBeKept) const {
    const auto find = [&](const std::wstring& searched, std::wstring_view kind) {
        CFolderMatches matches = m_folders.Find(searched, kind, m_follower);
        mayBeKept = mayBeKept && matches.followed;
        return matches;
    };
    CFolderMatches matches = find(pattern, L"");
    const auto owner = StylesheetOwner(candidate.searched);
    if (!matches.names.empty() || !owner) return matches;
    for (std::wstring_view kind : CRequestHandlerFactory::StylesheetKinds()) {
        matches = find(candidate.folder + std::wstring(*owner) + L".GET.", kind);
        if (!matches.names.empty()) break;
    }
    return matches;
}

}  // namespace quorbel
