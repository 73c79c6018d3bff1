#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quorbel {

/// A folder as commands name it ("file:/srv/docs", with or without "file:", "/" or "\") in lexically normal
/// form: UTF-8, without last "/", empty for the root. None for what is no absolute path.
std::optional<std::string> SearchFolderPath(std::wstring_view folder);

}  // namespace quorbel
