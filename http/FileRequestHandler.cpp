#include "http/FileRequestHandler.h"

#include <filesystem>

#include "http/ByteRange.h"
#include "http/FileRangeBuffer.h"
#include "platform/File.h"

namespace quorbel {

namespace {

std::error_code ToErrorCode(ErrorCode code) {
    switch (code) {
        case ErrorCode::FileNotFound: return std::make_error_code(std::errc::no_such_file_or_directory);
        case ErrorCode::PathNotFound: return std::make_error_code(std::errc::not_a_directory);
        case ErrorCode::AccessDenied: return std::make_error_code(std::errc::permission_denied);
        case ErrorCode::TooManyOpenFiles: return std::make_error_code(std::errc::too_many_files_open);
        default: return std::make_error_code(std::errc::io_error);
    }
}

class CFileResponseHandler final : public CHTTPServer::CRequestHandler::CResponse {
 public:
    CFileResponseHandler(CFileCache& files, const std::wstring& file, std::wstring contentType,
                         const std::wstring& etag, CacheClass cacheClass, std::uint64_t rangeCap,
                         const web::http::http_headers& request)
        : CResponse(cacheClass), m_contentType(std::move(contentType)) {
        const auto opened = files.Open(file);
        if (!opened.IsOk()) {
            throw std::filesystem::filesystem_error("file_size", ToUtf8(file), ToErrorCode(opened.Error()));
        }
        const std::uint64_t size = opened.Value()->Stamp().size;
        CByteRange range{CByteRange::Kind::Whole, 0, size};
        if (const auto field = request.find(web::http::header_names::range); field != request.end()) {
            range = CByteRange::Parse(FromUtf8(field->second), size, rangeCap);
            m_headers[L"Content-Length"] = std::to_wstring(range.length);
        }
        if (range.kind == CByteRange::Kind::Unsatisfiable) {
            m_status = web::http::status_codes::RangeNotSatisfiable;
            m_headers[L"Content-Range"] = L"bytes */" + std::to_wstring(size);
            return;
        }
        if (range.length < size) {
            m_status = web::http::status_codes::PartialContent;
            m_headers[L"Content-Range"] = L"bytes " + std::to_wstring(range.first) + L"-" +
                                          std::to_wstring(range.first + range.length - 1) + L"/" +
                                          std::to_wstring(size);
        }
        if (!etag.empty()) m_headers[L"ETag"] = etag;
        using Buffer = concurrency::streams::details::basic_file_range_buffer<std::uint8_t>;
        m_body = concurrency::streams::streambuf<std::uint8_t>(
                     std::make_shared<Buffer>(opened.Value(), range.first, range.length))
                     .create_istream();
    }

    std::uint16_t StatusCode() override { return m_status; }
    std::wstring ContentType() const override { return m_contentType; }

 private:
    std::uint16_t m_status = web::http::status_codes::OK;
    const std::wstring m_contentType;
};

}  // namespace

CFileRequestHandler::CFileRequestHandler(CFileCache& files, std::wstring file, std::wstring contentType,
                                         std::wstring etag, CacheClass cacheClass, std::uint64_t rangeCap)
    : m_files(files),
      m_file(std::move(file)),
      m_contentType(std::move(contentType)),
      m_etag(std::move(etag)),
      m_cacheClass(cacheClass),
      m_rangeCap(rangeCap == 0 ? kNoRangeCap : rangeCap) {}

std::shared_ptr<CHTTPServer::CRequestHandler::CResponse> CFileRequestHandler::CreateResponse(
    const web::http::http_request& request, const UserIdentity&, const TextMap&) {
    return std::make_shared<CFileResponseHandler>(m_files, m_file, m_contentType, m_etag, m_cacheClass,
                                                  m_rangeCap, request.headers());
}

}  // namespace quorbel
