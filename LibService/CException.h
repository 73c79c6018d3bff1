#pragma once

#include <source_location>
#include <string>

#include "LibService/Status.h"
#include "platform/framework/Exception.h"

namespace quorbel {

struct CFaultRecord;

/// A fault of the processor or an invalid parameter, as an exception with a text. The catcher deletes it.
class CCException final : public CException {
 public:
    explicit CCException(const CFaultRecord& fault);
    explicit CCException(std::wstring text) : m_text(std::move(text)) {}

    bool GetErrorMessage(wchar_t* buffer, std::size_t size) const noexcept override;

 private:
    const std::wstring m_text;
};

/// The error of a framework exception that was caught: 0xC0000068 with its text.
CStatus CaughtException(const CException& exception,
                        std::source_location where = std::source_location::current());
/// The same, and deletes the exception: all that a handler has to do.
CStatus TakeException(CException* exception, std::source_location where = std::source_location::current());

}  // namespace quorbel
