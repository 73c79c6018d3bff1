#pragma once

#include <string>

#include "data/results/ResultStream.h"

namespace quorbel {

/// The bytes of the one value that the query gives: one row of one column, whose value is a stream. The
/// request's headers are parameters of the command ("Header$" and the name).
class ResultStream<std::uint8_t>::StreamQueryInfo final : public QueryInfo {
 public:
    StreamQueryInfo(std::wstring contentType, Rendering rendering);

    std::size_t Read(std::uint8_t* buffer, std::size_t count) override;
    void SetHeaders(const web::http::http_request& request) override;
    /// 0x80070490 without a row or with NULL in it, 0x8007000D for more than one row or column, or a value
    /// that is no stream.
    HRESULT Prepare() override;
    std::wstring ContentType() const override { return contentType; }

 private:
    HRESULT TakeStream();

    const std::wstring contentType;
    CComPtr<ISequentialStream> m_stream;
};

}  // namespace quorbel
