#include "platform/Text.h"
#include "platform/registry/Key.h"

namespace quorbel {

namespace {

constexpr std::size_t kTerminatorSize = 2;

template <class Number>
CValue FromNumber(ValueType type, Number number) {
    CValue value{type, {}};
    for (std::size_t i = 0; i < sizeof number; ++i)
        value.data.push_back(static_cast<char>(number >> (8 * i)));
    return value;
}

template <class Number>
std::optional<Number> AsNumber(const std::string& data) {
    if (data.size() != sizeof(Number)) return std::nullopt;
    Number number = 0;
    for (std::size_t i = sizeof number; i-- > 0;) {
        number = static_cast<Number>(number << 8) | static_cast<unsigned char>(data[i]);
    }
    return number;
}

}  // namespace

CValue CValue::FromText(std::wstring_view text, ValueType type) {
    return {type, ToUtf16Bytes(text).append(kTerminatorSize, '\0')};
}

CValue CValue::FromTexts(const std::vector<std::wstring>& texts) {
    CValue value{ValueType::MultiText, {}};
    for (const std::wstring& text : texts) value.data += FromText(text).data;
    value.data.append(kTerminatorSize, '\0');
    return value;
}

CValue CValue::FromNumber32(std::uint32_t number) {
    return FromNumber(ValueType::Number32, number);
}
CValue CValue::FromNumber64(std::uint64_t number) {
    return FromNumber(ValueType::Number64, number);
}

std::wstring CValue::AsText() const {
    if (data.size() < kTerminatorSize) return {};
    return FromUtf16Bytes(std::string_view(data).substr(0, data.size() - kTerminatorSize));
}

std::vector<std::wstring> CValue::AsTexts() const {
    std::wstring all = FromUtf16Bytes(data);
    if (!all.empty() && all.back() == L'\0') all.pop_back();
    std::vector<std::wstring> texts;
    for (std::size_t start = 0; start < all.size();) {
        const std::size_t end = std::min(all.find(L'\0', start), all.size());
        texts.push_back(all.substr(start, end - start));
        start = end + 1;
    }
    return texts;
}

std::optional<std::uint32_t> CValue::AsNumber32() const {
    return AsNumber<std::uint32_t>(data);
}
std::optional<std::uint64_t> CValue::AsNumber64() const {
    return AsNumber<std::uint64_t>(data);
}

}  // namespace quorbel
