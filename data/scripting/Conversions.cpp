#include "data/scripting/Conversions.h"

#include <array>

#include "data/scripting/Exception.h"
#include "platform/com/Stream.h"

namespace quorbel::LibScripting {

namespace {

CComPtr<ISequentialStream> StreamOf(const VARIANT& value) {
    CComPtr<ISequentialStream> stream;
    if (value.vt != VT_UNKNOWN || !value.punkVal ||
        value.punkVal->QueryInterface(ISequentialStream::kId, stream.ReceiveVoid()) != S_OK) {
        throw exception("The value is no stream of bytes", E_FAIL);
    }
    return stream;
}

}  // namespace

std::wstring ToText(const VARIANT& value) {
    CVariant text;
    if (!Succeeded(VariantChangeType(text, value, VT_BSTR))) {
        throw exception("The value cannot be turned into a text", E_FAIL);
    }
    return std::wstring(text.Text());
}

std::string ReadBytes(const VARIANT& value, std::size_t most) {
    const auto stream = StreamOf(value);
    std::string bytes;
    std::array<char, 16384> part{};
    for (;;) {
        std::uint32_t read = 0;
        const HRESULT result = stream->Read(part.data(), part.size(), &read);
        if (!Succeeded(result)) throw exception("The stream of bytes cannot be read", result);
        if (read > most - bytes.size()) throw exception("The stream of bytes is too long", E_OUTOFMEMORY);
        bytes.append(part.data(), read);
        if (read != part.size()) return bytes;
    }
}

}  // namespace quorbel::LibScripting
