#include "data/results/StreamQueryInfo.h"

#include <algorithm>

#include "platform/Error.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

constexpr HRESULT kInvalidData = HResultFromWin32(13);
constexpr HRESULT kNotFound = HResultFromWin32(1168);
constexpr HRESULT kInternalError = HResultFromWin32(1359);

}  // namespace

ResultStream<std::uint8_t>::StreamQueryInfo::StreamQueryInfo(std::wstring type, Rendering rendering)
    : QueryInfo(std::move(rendering)), contentType(std::move(type)) {
    FetchAs(CRowAccessor::Form::OwnTypes);
}

void ResultStream<std::uint8_t>::StreamQueryInfo::SetHeaders(const web::http::http_request& request) {
    for (const auto& [name, value] : request.headers()) {
        SetParameter(L"Header$" + FromUtf8(name), FromUtf8(value));
    }
}

HRESULT ResultStream<std::uint8_t>::StreamQueryInfo::Prepare() {
    if (Columns().size() != 1) return kInvalidData;
    HRESULT result = Fetch([this] { return TakeStream(); });
    if (result == DB_S_ENDOFROWSET) result = kNotFound;
    if (result != S_OK) return result;
    result = Fetch([] { return kInvalidData; });
    if (result != DB_S_ENDOFROWSET) return result;
    // The stream owns its bytes; the connection is free while the client reads them.
    return Close();
}

HRESULT ResultStream<std::uint8_t>::StreamQueryInfo::TakeStream() {
    const std::size_t column = FindColumn(std::size_t{1});
    if (column == kNoColumn) return kInternalError;
    if (Columns()[column].info.wType != DBTYPE_VARIANT) return kInvalidData;
    if (Values().Status(column) == DBSTATUS_S_ISNULL) return kNotFound;
    if (!HasValue(Values().Status(column))) return kInvalidData;
    CVariant value;
    if (!Succeeded(VariantChangeType(value, Values().Variant(column), VT_UNKNOWN)) || !value.punkVal)
        return kInvalidData;
    return value.punkVal->QueryInterface(ISequentialStream::kId, m_stream.ReceiveVoid());
}

std::size_t ResultStream<std::uint8_t>::StreamQueryInfo::Read(std::uint8_t* buffer, std::size_t count) {
    std::uint32_t read = 0;
    const auto most = static_cast<std::uint32_t>(std::min<std::size_t>(count, UINT32_MAX));
    const HRESULT result = m_stream->Read(buffer, most, &read);
    if (!Succeeded(result)) Fail(result);
    return read;
}

}  // namespace quorbel
