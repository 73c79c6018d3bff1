#include "data/results/ResultStream.h"

#include "data/results/BasicBuffer.h"
#include "data/results/RowsetQueryInfo.h"
#include "data/results/StreamQueryInfo.h"
#include "platform/Error.h"
#include "platform/Text.h"
#include "platform/fault/Faults.h"

namespace quorbel {

namespace {

constexpr std::wstring_view kStylesheetExtension = L".xslt";

enum class Format { None, Json, Xml, Stylesheet };

/// The first media type of the list that is known decides; blanks around one belong to it.
Format ChooseFormat(std::string_view accept) {
    for (std::size_t start = 0; start <= accept.size();) {
        const std::size_t end = std::min(accept.find(',', start), accept.size());
        std::string_view item = accept.substr(start, end - start);
        item = item.substr(0, item.find(';'));
        if (item == "application/xml" || item == "*/*") return Format::Xml;
        if (item == "application/json") return Format::Json;
        if (item == "text/css") return Format::Stylesheet;
        start = end + 1;
    }
    return Format::None;
}

bool AsksForStylesheet(const web::http::http_request& request) {
    const std::wstring path = FromUtf8(web::uri::decode(request.relative_uri().path()));
    return path.size() >= kStylesheetExtension.size() &&
           EqualNoCase(std::wstring_view(path).substr(path.size() - kStylesheetExtension.size()),
                       kStylesheetExtension);
}

}  // namespace

std::system_error ToSystemError(HRESULT result) {
    return {result & 0xFFFF, std::system_category()};
}

void ResultStream<std::uint8_t>::QueryInfo::Fail(HRESULT result) const {
    if (m_report && result != DB_E_CANCELED) m_report(result);
    throw ToSystemError(result);
}

std::shared_ptr<ResultStream<std::uint8_t>::QueryInfo> ResultStream<std::uint8_t>::Choose(
    const std::wstring& name, const web::http::http_request& request, CHTMLDataSource::Rendering rendering) {
    if (AsksForStylesheet(request)) return std::make_shared<XSLQueryInfo>(std::move(rendering));
    const auto query = web::uri::split_query(request.relative_uri().query());
    if (const auto stream = query.find("Stream"); stream != query.end()) {
        return std::make_shared<StreamQueryInfo>(FromUtf8(stream->second), std::move(rendering));
    }
    const auto accept = request.headers().find(web::http::header_names::accept);
    switch (ChooseFormat(accept == request.headers().end() ? "" : accept->second)) {
        case Format::Json: return std::make_shared<JsonQueryInfo>(std::move(rendering));
        case Format::Xml: return std::make_shared<XMLQueryInfo>(name, request, std::move(rendering));
        case Format::Stylesheet: return std::make_shared<XSLQueryInfo>(std::move(rendering));
        case Format::None: break;
    }
    throw ToSystemError(HResultFromWin32(ToNumber(ErrorCode::UnsupportedType)));
}

pplx::task<std::shared_ptr<ResultStream<std::uint8_t>::QueryInfo>> ResultStream<std::uint8_t>::Open(
    const std::wstring& name, const web::http::http_request& request, OpenFunction open,
    CHTMLDataSource::Rendering rendering) {
    try {
        auto query = Choose(name, request, std::move(rendering));
        CancelWhenAbandoned(query);
        return pplx::create_task([query = std::move(query), open = std::move(open)] {
            const CallbackOpen opened;
            FaultAsError([&] { open(query, opened); });
            return opened.Task();
        });
    } catch (...) {
        return pplx::task_from_exception<std::shared_ptr<QueryInfo>>(std::current_exception());
    }
}

concurrency::streams::istream ResultStream<std::uint8_t>::Body(std::shared_ptr<QueryInfo> query) {
    return concurrency::streams::streambuf<std::uint8_t>(std::make_shared<BasicBuffer>(std::move(query)))
        .create_istream();
}

}  // namespace quorbel
