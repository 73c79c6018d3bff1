// A script engine library whose actions show what they were given, or fail in the way that their names say.
#include "data/scripting/Conversions.h"
#include "data/scripting/Engine.h"
#include "data/scripting/Exception.h"

namespace {

using namespace quorbel;
using namespace quorbel::LibScripting;

std::wstring Show(const VARIANT& resource, const wchar_t* name, const NamedArguments& named,
                  const PositionalArguments& positional) {
    std::wstring text = name + (L"(" + ToText(resource)) + L")";
    for (const auto& value : positional) text += L" " + ToText(value);
    for (const auto& [key, value] : named) text += L" " + key + L"=" + ToText(value);
    return text;
}

}  // namespace

void fnExecute(VARIANT* result, Engine* engine, VARIANT* resource, const wchar_t* name, NamedArguments* named,
               PositionalArguments* positional) {
    const std::wstring action = name;
    if (action == L"throw standard") throw std::out_of_range("out of r\u00E4nge");
    if (action == L"throw scripting") throw exception("no such th\u00EFng", DISP_E_BADINDEX);
    if (action == L"throw number") throw 42;
    if (action == L"report") return CVariant::FromError(DISP_E_OVERFLOW).Detach(*result);
    if (action == L"nothing") return;
    if (action == L"again") {
        CVariant inner;
        CVariant copy(*resource);
        engine->Execute(inner, copy, L"inner", *named, *positional);
        return inner.Detach(*result);
    }
    CVariant(Show(*resource, name, *named, *positional)).Detach(*result);
}
