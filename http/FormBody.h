#pragma once

#include <optional>
#include <string_view>

#include "config/HostConfiguration.h"

namespace quorbel {

/// True when a Content-Type value names the media type, or a parameter of that name: white space and case do
/// not count.
bool HasMediaType(std::wstring_view contentType, std::wstring_view mediaType);
/// True for the body of a form, "application/x-www-form-urlencoded".
bool IsFormContentType(std::wstring_view contentType);

/// The fields of a form. They may hold passwords, so they are overwritten in memory at their end.
struct CFormFields {
    TextMap values;

    CFormFields() = default;
    CFormFields(CFormFields&&) = default;
    CFormFields& operator=(CFormFields&&) = delete;
    ~CFormFields();
};

/// The fields of a form body (URL Standard, section 5.1); names and values stay percent-encoded. A "+", by
/// which browsers write a blank, becomes "%20" first. Of two fields with one name the last counts, one
/// without "=" does not. None for a form of more than kMostFormFields fields.
std::optional<CFormFields> ParseForm(std::string_view body);
inline constexpr std::size_t kMostFormFields = 10'000;

}  // namespace quorbel
