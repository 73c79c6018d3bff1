#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/com/Com.h"

namespace quorbel {

/// A value that a script is given or gives: nil, truth, integer, float or string (any bytes).
using CLuaValue = std::variant<std::monostate, bool, std::int64_t, double, std::string>;

/// A function of a script, and what it is called with.
struct CLuaCall {
    std::string source;
    std::string function;
    std::vector<CLuaValue> positional;
    /// When there are any, the last argument is a table of them.
    std::vector<std::pair<std::string, CLuaValue>> named;
};

/// What a run may take. At the bound of time it ends within about half a second: what Lua and its compiler do
/// without a look at the time takes no longer.
struct CLuaBounds {
    std::chrono::steady_clock::duration time = std::chrono::seconds(1);
    std::size_t memory = std::size_t{64} << 20;
    std::chrono::steady_clock::time_point (*now)() = &std::chrono::steady_clock::now;
};

/// Why there is no value: HRESULT_FROM_WIN32(1460) when time was up, E_OUTOFMEMORY when memory was short or a
/// text too long, E_FAIL for errors of the script and a value that cannot leave Lua.
struct CLuaFailure {
    HRESULT result;
    std::string message;  ///< of the script's own making but for its length; UTF-8 if the script is
};

/// Runs the script in a state of its own, with the functions of LuaLibrary.h alone, then calls the function;
/// the value is the first of its results. From any thread.
std::variant<CLuaValue, CLuaFailure> RunLua(const CLuaCall& call, const CLuaBounds& bounds = {});

}  // namespace quorbel
