#pragma once

#include <string_view>

#include "config/HostConfiguration.h"

namespace quorbel {

/// True when a Content-Type value says that the body is a form ("application/x-www-form-urlencoded",
/// parameters allowed, white space and case ignored).
bool IsFormContentType(std::wstring_view contentType);

/// The fields of a form body (URL Standard, section 5.1); names and values stay percent-encoded. A "+", by
/// which browsers write a blank, becomes "%20" first. Of two fields with one name the last counts.
TextMap ParseForm(std::string_view body);

}  // namespace quorbel
