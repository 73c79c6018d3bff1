#pragma once

#include <cpprest/http_msg.h>
#include <functional>
#include <memory>
#include <string>

#include "data/consumer/DataSource.h"
#include "platform/Waiting.h"

namespace quorbel {

/// Turns the rows of one query into a response body of elements E (bytes), while the client reads it.
template <class E>
class ResultStream;

template <>
class ResultStream<std::uint8_t> {
 public:
    class QueryInfo;
    class RowsetQueryInfo;
    class JsonQueryInfo;
    class XMLQueryInfo;
    class XSLQueryInfo;
    class StreamQueryInfo;
    class BasicBuffer;

    /// Says that the query has been opened; once.
    class CallbackOpen {
     public:
        void Complete(std::shared_ptr<QueryInfo> query) const { m_opened.set(std::move(query)); }
        pplx::task<std::shared_ptr<QueryInfo>> Task() const { return pplx::create_task(m_opened); }

     private:
        pplx::task_completion_event<std::shared_ptr<QueryInfo>> m_opened;
    };
    /// Opens the query of the strategy that was chosen. May throw what the task is to fail with.
    using OpenFunction = std::function<void(const std::shared_ptr<QueryInfo>&, const CallbackOpen&)>;

    /// Chooses how the request is answered and has the query opened, on a task. The task fails with a
    /// std::system_error: 1630 when the request accepts none of the formats. `name` is the handler's folder.
    /// The query is cancelled when the calling thread's work is abandoned before that.
    static pplx::task<std::shared_ptr<QueryInfo>> Open(const std::wstring& name,
                                                       const web::http::http_request& request,
                                                       OpenFunction open,
                                                       CHTMLDataSource::Rendering rendering);
    /// The body that an opened query gives.
    static concurrency::streams::istream Body(std::shared_ptr<QueryInfo> query);

 private:
    static std::shared_ptr<QueryInfo> Choose(const std::wstring& name, const web::http::http_request& request,
                                             CHTMLDataSource::Rendering rendering);
};

/// How one request is answered: the query and what is made of its rows.
class ResultStream<std::uint8_t>::QueryInfo : public CHTMLDataBuffer, public ICancellable {
 public:
    using CHTMLDataBuffer::CHTMLDataBuffer;
    /// Told of what ends the body before its time, but for a query that was cancelled.
    using FailureReport = std::function<void(HRESULT)>;

    void ReportFailures(FailureReport report) { m_report = std::move(report); }
    /// Puts up to `count` body bytes (at least 1) into the buffer; 0 only at the body's end. Throws
    /// std::system_error with the failure's Win32 error number.
    virtual std::size_t Read(std::uint8_t* buffer, std::size_t count) = 0;
    /// Sees the request's headers before the command runs.
    virtual void SetHeaders(const web::http::http_request&) {}
    /// Called once the command has run, before the first Read.
    virtual HRESULT Prepare() { return S_OK; }
    virtual std::wstring ContentType() const = 0;
    /// The next Read is known to give nothing more.
    virtual bool IsAtEnd() const { return false; }

    void Cancel() noexcept override { CHTMLDataSource::Cancel(); }
    /// Reports the failure and throws what Read throws.
    [[noreturn]] void Fail(HRESULT result) const;

 private:
    FailureReport m_report;
};

/// What a failure is to the HTTP library: its low 16 bits as a system error.
std::system_error ToSystemError(HRESULT result);

}  // namespace quorbel
