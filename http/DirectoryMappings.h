#pragma once

#include <memory>
#include <string>

#include "components/archive/ArchiveFileSystem.h"
#include "http/RequestHandler.h"
#include "platform/FileCache.h"

namespace quorbel {

/// Answers requests for the archive's files below a host's directory mappings.
class CDirectoryMappings {
 public:
    using Handler = std::shared_ptr<CHTTPServer::CRequestHandler>;

    /// All are kept by reference: they live as long as the one request that this object is made for, the
    /// files as long as the handlers that are found.
    CDirectoryMappings(IArchiveFileSystem& archive, CFileCache& files, const TextMap& mappings,
                       std::uint64_t rangeCap)
        : m_archive(archive), m_files(files), m_mappings(mappings), m_rangeCap(rangeCap) {}

    /// The handler of the archive file that `path` names below a mapping: not-modified when the request's
    /// If-None-Match equals the file's entity tag, the file otherwise. None when no mapping matches or the
    /// archive does not open the file or view.
    Handler Find(const web::http::http_request& request, const std::wstring& path) const;

 private:
    IArchiveFileSystem& m_archive;
    CFileCache& m_files;
    const TextMap& m_mappings;
    const std::uint64_t m_rangeCap;
};

/// The entity tag of a source text: 8 bytes of FNV-1a over its UTF-16LE form, least significant first, in
/// Base64.
std::wstring EntityTag(std::wstring_view source);

}  // namespace quorbel
