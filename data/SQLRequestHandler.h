#pragma once

#include <latch>
#include <memory>
#include <string>

#include "data/results/ResultStream.h"
#include "http/EventLimiter.h"
#include "http/RequestHandler.h"
#include "platform/FileCache.h"

namespace quorbel {

/// What handlers of query files have in common: the file, and a response that is there when the query runs.
class CSQLRequestInstance {
 public:
    class Response;

    /// What all handlers of a kind share.
    struct Shared {
        explicit Shared(IClock& clock) : files(clock), sources(clock), commands(clock) {}
        CFileCache files;
        /// Keep failing queries from filling the event log.
        /// @{
        CEventLimiter sources;
        CEventLimiter commands;
        /// @}
    };

    CSQLRequestInstance(std::wstring folder, std::wstring file, std::shared_ptr<Shared> shared)
        : root(std::move(folder)), queryFile(std::move(file)), m_shared(std::move(shared)) {}

 protected:
    const std::wstring root;
    const std::wstring queryFile;
    const std::shared_ptr<Shared> m_shared;
};

/// The answer of a query: 200 and its result once the query has been opened, else a failure without body.
class CSQLRequestInstance::Response : public CHTTPServer::CRequestHandler::CResponse,
                                      public std::enable_shared_from_this<Response> {
 public:
    using Results = ResultStream<std::uint8_t>;

    Response(std::wstring queryFile, std::shared_ptr<Shared> shared)
        : CResponse(CacheClass::Dynamic), m_queryFile(std::move(queryFile)), m_shared(std::move(shared)) {}

    /// Wait until the query has been opened, or has failed.
    /// @{
    std::uint16_t StatusCode() override;
    concurrency::streams::istream& Body() override;
    /// @}
    std::wstring ContentType() const override { return contentType; }

    /// Starts the query; once, right after creation.
    void Start(const std::wstring& name, const web::http::http_request& request,
               CHTMLDataSource::Rendering rendering);

 protected:
    /// Opens the query of the strategy; throws std::system_error when it fails. The response is not shown to
    /// anybody before it returns.
    virtual void OpenQuery(Results::QueryInfo& query) = 0;

    /// The text of the query file; throws std::system_error.
    std::wstring ReadText() const;
    /// Opens the data source; throws std::system_error, after an error of this message (initialisation
    /// string, reason).
    void OpenSource(Results::QueryInfo& query, const std::wstring& initialisation,
                    std::uint32_t messageId) const;
    /// From now on the query's failures are errors of this message (command, reason, query file).
    void ReportFailures(Results::QueryInfo& query, const std::wstring& command,
                        std::uint32_t messageId) const;

    std::wstring contentType;
    const std::wstring m_queryFile;
    const std::shared_ptr<Shared> m_shared;

 private:
    void Finish(const pplx::task<std::shared_ptr<Results::QueryInfo>>& opened);

    std::uint16_t status = web::http::status_codes::NoContent;
    std::latch ready{1};
};

/// What a failure's description says, or else its number; for the event log.
std::wstring ReasonFor(HRESULT result);

/// Answers a request with the result of a command, which a file beside the static ones holds: the handler of
/// files of the kind "SQL". docs/query-files.md tells what such a file may hold.
class CSQLRequestHandler final : public CSQLRequestInstance, public CHTTPServer::CRequestHandler {
 public:
    /// Makes the kind "SQL" known.
    static void Register(IClock& clock);

    using CSQLRequestInstance::CSQLRequestInstance;
    std::shared_ptr<CResponse> CreateResponse(const web::http::http_request& request,
                                              const UserIdentity& user, const TextMap& parameters) override;

 private:
    class Response;
};

}  // namespace quorbel
