#pragma once

#include <stdexcept>

#include "platform/com/Com.h"

namespace quorbel::LibScripting {

/// What a script engine library, or a conversion made for one, throws when an action fails. It crosses the
/// border between library and service: both find it by its name.
class exception : public std::runtime_error {
 public:
    /// `message` is UTF-8 and meant for the operator.
    exception(const std::string& message, HRESULT result) : std::runtime_error(message), m_result(result) {}
    HRESULT Result() const noexcept { return m_result; }

 private:
    HRESULT m_result;
};

}  // namespace quorbel::LibScripting
