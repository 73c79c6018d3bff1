#pragma once

#include <string>

#include "platform/framework/DialogTemplate.h"

namespace quorbel {

/// What the dialogs show: their templates, texts and icon.
inline constexpr int kServiceIcon = 128;
inline constexpr int kServiceDialog = 10001;
inline constexpr int kInvalidParameterDialog = 10002;
inline constexpr int kActivityControl = 10003;
inline constexpr int kInvalidParameterText = 10004;

CDialogTemplate ServiceDialogTemplate();
CDialogTemplate InvalidParameterTemplate();

/// The icon kServiceIcon, `size` pixels wide and high.
CIcon DrawServiceIcon(int size);

}  // namespace quorbel
