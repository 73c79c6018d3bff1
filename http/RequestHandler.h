#pragma once

#include <cpprest/http_msg.h>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "http/HTTPServer.h"
#include "platform/IString.h"
#include "platform/Text.h"

namespace quorbel {

/// How long a response may be kept by whom; chooses its Cache-Control (see Reply).
enum class CacheClass : std::uint32_t {
    Absent = 0,       ///< built-in answers, and whatever does not say
    Manifest = 1,     ///< files of web applications
    Development = 2,  ///< files of access roots
    Session = 3,      ///< query results that say so
    Dynamic = 4,      ///< query results by default
    Archive = 5,      ///< files of directory mappings
    View = 6,         ///< views of files of directory mappings
};

/// Header fields by name, without regard to case.
using HeaderMap = std::map<std::wstring, std::wstring, CLessNoCase>;

using UserIdentity = basic_istring<wchar_t>;

/// Answers requests. Handlers may be cached and used by many threads at once.
class CHTTPServer::CRequestHandler {
 public:
    class CResponse;

    virtual ~CRequestHandler() = default;
    /// `user` is empty for an anonymous caller; `parameters` are the named values of the listener and, for a
    /// form, its fields. May throw a std::exception: the request is then answered 500.
    virtual std::shared_ptr<CResponse> CreateResponse(const web::http::http_request& request,
                                                      const UserIdentity& user,
                                                      const TextMap& parameters) = 0;
};

/// One request's answer.
class CHTTPServer::CRequestHandler::CResponse {
 public:
    virtual ~CResponse() = default;
    /// The HTTP status; may wait until it is known.
    virtual std::uint16_t StatusCode() = 0;
    virtual HeaderMap& Headers() { return m_headers; }
    /// May be no stream at all.
    virtual concurrency::streams::istream& Body() { return m_body; }
    /// Empty for none.
    virtual std::wstring ContentType() const { return {}; }

    CacheClass Cache() const noexcept { return m_cacheClass; }

 protected:
    explicit CResponse(CacheClass cacheClass = CacheClass::Absent) noexcept : m_cacheClass(cacheClass) {}

    CacheClass m_cacheClass;
    HeaderMap m_headers;
    concurrency::streams::istream m_body;
};

}  // namespace quorbel
