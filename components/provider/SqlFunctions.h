#pragma once

#include <span>
#include <string_view>

#include "platform/com/Variant.h"

namespace quorbel {

/// The functions that a command's text can call, as the command carries them out: http_provenance,
/// http_header, script_library, script_resource, script_action. Called on the thread that executes the
/// command or fetches its rows. Failures leave a description in platform/com/ErrorInfo.h.
class ISqlFunctions {
 public:
    virtual ~ISqlFunctions() = default;
    /// The result value "HTTP.Provenance"; the last call counts.
    virtual HRESULT SetProvenance(std::wstring_view provenance) = 0;
    /// One more text, `Name: value`, of the result value "HTTP.Header". E_INVALIDARG for a field that must
    /// not be set: without a name that is a token, with control characters, Content-Length, Content-Type,
    /// Transfer-Encoding, Connection, Keep-Alive, Trailer or Upgrade; nor beyond 64 KiB of all of them.
    virtual HRESULT AddHeader(std::wstring_view field) = 0;
    /// Which script engine library runs the actions, and the value that each of them is given. E_FAIL
    /// when the consumer takes no actions.
    /// @{
    virtual HRESULT SetScriptLibrary(std::wstring_view path) = 0;
    virtual HRESULT SetScriptResource(const VARIANT& resource) = 0;
    /// @}
    virtual HRESULT RunScriptAction(std::wstring_view name, std::span<const CVariant> arguments,
                                    CVariant& result) = 0;
};

}  // namespace quorbel
