#pragma once

#include "platform/com/Variant.h"

namespace quorbel {

/// Values that a command gives beside its rows, by name: "HTTP.Provenance" (a text) and "HTTP.Header" (a text
/// or an array of texts). They are those of the moment at which the execution ended.
class IResultValues : public IUnknown {
 public:
    static constexpr GUID kId{0x72B290FC, 0xE727, 0x43B2, {0x8D, 0x35, 0x36, 0x03, 0xFC, 0xFC, 0x66, 0xF3}};
    virtual HRESULT GetCount(std::uint32_t* count) = 0;
    /// `name` is a VT_BSTR, compared exactly; `value` receives a new value, VT_EMPTY for a name without one.
    virtual HRESULT GetValue(const VARIANT* name, VARIANT* value) = 0;
};

}  // namespace quorbel
