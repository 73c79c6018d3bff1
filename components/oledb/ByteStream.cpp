#include "components/oledb/ByteStream.h"

#include <algorithm>
#include <cstring>

namespace quorbel {

namespace {

class CByteStream final : public CComObject<ISequentialStream> {
 public:
    explicit CByteStream(std::string_view bytes) : m_bytes(bytes) {}

    HRESULT Read(void* buffer, std::uint32_t size, std::uint32_t* read) override {
        const std::size_t count = std::min<std::size_t>(size, m_bytes.size() - m_position);
        if (count != 0) std::memcpy(buffer, m_bytes.data() + m_position, count);
        m_position += count;
        if (read) *read = static_cast<std::uint32_t>(count);
        return count == size ? S_OK : S_FALSE;
    }
    HRESULT Write(const void*, std::uint32_t, std::uint32_t*) override { return E_NOTIMPL; }

 private:
    const std::string m_bytes;
    std::size_t m_position = 0;
};

constexpr std::uint32_t kPart = 64 * 1024;

}  // namespace

CComPtr<ISequentialStream> MakeByteStream(std::string_view bytes) {
    return CComPtr<ISequentialStream>(new CByteStream(bytes));
}

HRESULT ReadAll(IUnknown* object, std::size_t most, std::string& bytes) {
    bytes.clear();
    CComPtr<ISequentialStream> stream;
    if (!object || !Succeeded(object->QueryInterface(ISequentialStream::kId, stream.ReceiveVoid()))) {
        return DISP_E_TYPEMISMATCH;
    }
    for (;;) {
        const std::size_t begin = bytes.size();
        bytes.resize(begin + kPart);
        std::uint32_t read = 0;
        const HRESULT result = stream->Read(bytes.data() + begin, kPart, &read);
        if (!Succeeded(result)) return result;
        bytes.resize(begin + std::min(read, kPart));
        if (bytes.size() > most) return E_FAIL;
        if (read < kPart) return S_OK;
    }
}

}  // namespace quorbel
