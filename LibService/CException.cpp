#include "LibService/CException.h"

#include <algorithm>
#include <array>

#include "LibService/MessageIds.h"
#include "platform/Text.h"
#include "platform/fault/FaultText.h"

namespace quorbel {

CCException::CCException(const CFaultRecord& fault)
    : m_text(FromUtf8(DescribeFault(fault, FaultTextForm::Exception).View())) {}

bool CCException::GetErrorMessage(wchar_t* buffer, std::size_t size) const noexcept {
    if (!buffer || size == 0) return false;
    const std::size_t length = std::min(m_text.size(), size - 1);
    std::copy_n(m_text.data(), length, buffer);
    buffer[length] = L'\0';
    return true;
}

CStatus CaughtException(const CException& exception, std::source_location where) {
    std::array<wchar_t, 1024> text{};
    Ignore(exception.GetErrorMessage(text.data(), text.size()));
    return MessageError(message::kCaughtException, {text.data()}, where);
}

CStatus TakeException(CException* exception, std::source_location where) {
    const std::unique_ptr<CException> owned(exception);
    return CaughtException(*owned, where);
}

}  // namespace quorbel
