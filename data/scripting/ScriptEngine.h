#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/com/Variant.h"

/// The contract between the service and a script engine library: a shared library that exports `fnExecute`.
/// Both include this header, and are built by the same compiler with the same standard library.
/// docs/script-engines.md tells the whole of it.

namespace quorbel::LibScripting {

class Engine;

using NamedArguments = std::map<std::wstring, CVariant>;
/// The first argument comes first.
using PositionalArguments = std::vector<CVariant>;

inline constexpr const char* kEntryName = "fnExecute";

}  // namespace quorbel::LibScripting

/// Performs the action `name` and puts its value into `result`, which is VT_EMPTY before; VT_ERROR reports a
/// failure by its HRESULT alone. Throws LibScripting::exception to tell more. `resource` is a copy, and the
/// arguments are the callee's to change. Called from any thread, from several at a time.
extern "C" [[gnu::visibility("default")]] void fnExecute(
    quorbel::VARIANT* result, quorbel::LibScripting::Engine* engine, quorbel::VARIANT* resource,
    const wchar_t* name, quorbel::LibScripting::NamedArguments* named,
    quorbel::LibScripting::PositionalArguments* positional);
