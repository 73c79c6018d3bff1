#pragma once

#include <optional>
#include <string_view>

#include "platform/crypto/Secret.h"

namespace quorbel {

/// A new password: asked for twice without echo when standard input is a terminal, else its first line. None,
/// after saying why, when it is empty, too long, not valid UTF-8 or not the same both times. A signal that
/// ends the program ends it here with the terminal as it was before.
std::optional<CSecretText> AskForNewPassword();

}  // namespace quorbel
