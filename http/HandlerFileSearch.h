#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "http/RequestHandler.h"
#include "platform/FileCache.h"
#include "platform/folders/FolderSearch.h"

namespace quorbel {

/// Finds the file that answers a request below a host's access roots and web applications: its name begins
/// with the path's last segment, "." and the method, and its kind (the text after its last ".") says how it
/// answers.
class CHandlerFileSearch {
 public:
    using Handler = std::shared_ptr<CHTTPServer::CRequestHandler>;
    struct Result {
        Handler handler;
        bool mayBeKept = true;  ///< false when a change could pass unnoticed
    };

    /// Both outlive the handlers that are found.
    CHandlerFileSearch(IFolderSearch& folders, CFileCache& files, std::shared_ptr<IFolderFollower> follower)
        : m_folders(folders), m_files(files), m_follower(std::move(follower)) {}

    /// Tries the access roots of `level` and below, downwards, then the web applications likewise. `key` is
    /// the path, "." and the method.
    Result Find(const std::map<AccessLevel, std::wstring>& accessRoots,
                const std::map<AccessLevel, TextMap>& webApplications, AccessLevel level,
                const std::wstring& path, const std::wstring& key) const;

 private:
    struct Candidate {
        std::wstring folder;
        std::wstring_view searched;  ///< the part of the key that names a file below the folder
        CacheClass cacheClass;
    };
    Handler CreateHandler(const Candidate& candidate, const std::wstring& file) const;
    Handler FindBelow(const Candidate& candidate, bool& mayBeKept) const;
    CFolderMatches Match(const Candidate& candidate, const std::wstring& pattern, bool& mayBeKept) const;

    IFolderSearch& m_folders;
    CFileCache& m_files;
    const std::shared_ptr<IFolderFollower> m_follower;
};

}  // namespace quorbel
