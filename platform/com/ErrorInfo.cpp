#include "platform/com/ErrorInfo.h"

#include <utility>

namespace quorbel {

namespace {

thread_local std::wstring t_description;

}  // namespace

void SetErrorInfo(std::wstring description) noexcept {
    t_description = std::move(description);
}

std::wstring TakeErrorInfo() noexcept {
    return std::exchange(t_description, {});
}

}  // namespace quorbel
