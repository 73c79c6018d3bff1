#include "data/results/Escapes.h"
#include "data/results/RowsetQueryInfo.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

constexpr Escapes kXmlEscapes = [] {
    Escapes escapes{};
    escapes['"'] = L"&quot;";
    escapes['&'] = L"&amp;";
    escapes['\''] = L"&apos;";
    escapes['<'] = L"&lt;";
    escapes['>'] = L"&gt;";
    return escapes;
}();

}  // namespace

ResultStream<std::uint8_t>::XMLQueryInfo::XMLQueryInfo(std::wstring name,
                                                       const web::http::http_request& request,
                                                       Rendering rendering)
    : RowsetQueryInfo(std::move(rendering)),
      m_name(std::move(name)),
      m_path(FromUtf8(web::uri::decode(request.relative_uri().path()))) {}

std::wstring ResultStream<std::uint8_t>::XMLQueryInfo::Header() {
    return L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
           L"<?xml-stylesheet type=\"text/xsl\" href=\"" +
           m_path +
           L".xslt\"?>\r\n"
           L"<data xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\r\n";
}

HRESULT ResultStream<std::uint8_t>::XMLQueryInfo::Row(std::wstring& text) {
    text += L"<row>";
    const HRESULT result = FetchColumns([&](std::size_t column) {
        const std::wstring& name = Columns()[column].name;
        const DBSTATUS status = Values().Status(column);
        if (status == DBSTATUS_S_ISNULL) {
            text.append(L"<").append(name).append(L" xsi:nil=\"true\"/>");
        } else if (HasValue(status)) {
            text.append(L"<").append(name).append(L">");
            AppendEscaped(text, ShownText(column), kXmlEscapes);
            text.append(L"</").append(name).append(L">");
        }
    });
    text += L"</row>";
    return result;
}

}  // namespace quorbel
