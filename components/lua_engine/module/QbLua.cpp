// QbLua.so: the script engine library for Lua. The resource is a script, an action one of its global
// functions.
#include "components/lua_engine/LuaRun.h"
#include "data/scripting/Conversions.h"
#include "data/scripting/Exception.h"
#include "data/scripting/ScriptEngine.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

constexpr std::size_t kLongestBlob = std::size_t{64} << 20;

CLuaValue ToLua(const VARIANT& value) {
    switch (value.vt) {
        case VT_EMPTY:
        case VT_NULL: return {};
        case VT_BOOL: return value.boolVal != VARIANT_FALSE;
        case VT_I2: return std::int64_t{value.iVal};
        case VT_I4: return std::int64_t{value.lVal};
        case VT_I8: return value.llVal;
        case VT_R4: return double{value.fltVal};
        case VT_R8: return value.dblVal;
        case VT_BSTR: return ToUtf8(ToView(value.bstrVal));
        case VT_UNKNOWN: return LibScripting::ReadBytes(value, kLongestBlob);
        default: throw LibScripting::exception("script: an argument of no type of Lua", E_FAIL);
    }
}

CVariant FromLua(const CLuaValue& value) {
    if (const auto* const truth = std::get_if<bool>(&value)) return CVariant::FromBool(*truth);
    if (const auto* const integer = std::get_if<std::int64_t>(&value)) return CVariant::FromI8(*integer);
    if (const auto* const number = std::get_if<double>(&value)) return CVariant::FromR8(*number);
    if (const auto* const text = std::get_if<std::string>(&value)) return CVariant(FromUtf8(*text));
    return CVariant::Null();
}

}  // namespace

}  // namespace quorbel

void fnExecute(quorbel::VARIANT* result, quorbel::LibScripting::Engine*, quorbel::VARIANT* resource,
               const wchar_t* name, quorbel::LibScripting::NamedArguments* named,
               quorbel::LibScripting::PositionalArguments* positional) {
    using namespace quorbel;
    CLuaCall call{ToUtf8(LibScripting::ToText(*resource)), ToUtf8(name), {}, {}};
    for (const auto& value : *positional) call.positional.push_back(ToLua(value));
    for (const auto& [key, value] : *named) call.named.emplace_back(ToUtf8(key), ToLua(value));
    const auto outcome = RunLua(call);
    if (const auto* const failure = std::get_if<CLuaFailure>(&outcome)) {
        throw LibScripting::exception(failure->message, failure->result);
    }
    FromLua(std::get<CLuaValue>(outcome)).Detach(*result);
}
