#pragma once

#include <cstdint>
#include <string>

#include "http/RequestHandler.h"
#include "platform/FileCache.h"

namespace quorbel {

/// Serves one file, whole or by a byte range. The file cache outlives it.
class CFileRequestHandler final : public CHTTPServer::CRequestHandler {
 public:
    /// No cap on the bytes that an open-ended range receives.
    static constexpr std::uint64_t kNoRangeCap = ~std::uint64_t{0};

    /// `etag` may be empty. `rangeCap` in bytes; 0 counts as no cap, as a part of 0 bytes cannot be stated.
    CFileRequestHandler(CFileCache& files, std::wstring file, std::wstring contentType, std::wstring etag,
                        CacheClass cacheClass, std::uint64_t rangeCap);

    /// Throws std::filesystem::filesystem_error ("file_size") when the file cannot be opened.
    std::shared_ptr<CResponse> CreateResponse(const web::http::http_request& request,
                                              const UserIdentity& user, const TextMap& parameters) override;

    const std::wstring& File() const noexcept { return m_file; }

 private:
    CFileCache& m_files;
    const std::wstring m_file;
    const std::wstring m_contentType;
    const std::wstring m_etag;
    const CacheClass m_cacheClass;
    const std::uint64_t m_rangeCap;
};

}  // namespace quorbel
