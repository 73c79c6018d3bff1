#pragma once

#include <map>
#include <string>
#include <string_view>

#include "platform/Text.h"

namespace quorbel {

/// Media types (RFC 6838) by file-name extension, without regard to case. Fixed; read by any thread.
class CMIMEMap {
 public:
    static const CMIMEMap& Instance();

    /// The media type of an extension, given with one leading full stop or without;
    /// "application/octet-stream" for one that is not known. Valid for the life of the process.
    const std::wstring& GetContentType(std::wstring_view extension) const;

 private:
    CMIMEMap();
    std::map<std::wstring, std::wstring, CLessNoCase> m_types;
};

}  // namespace quorbel
