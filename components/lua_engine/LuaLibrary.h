#pragma once

#include <cstddef>

struct lua_State;

namespace quorbel {

/// Bytes of the longest text that is compiled: compiling takes time that grows with the square of the number
/// of jumps, and nothing ends it.
inline constexpr std::size_t kLongestLuaSource = std::size_t{64} << 10;

/// Bytes of the longest text that a script can have: what one instruction does with a text takes time that
/// grows with its length, and nothing ends it.
inline constexpr std::size_t kLongestLuaText = std::size_t{4} << 20;

/// The functions that scripts have, for one state; each is called by Lua, and may raise its errors.
/// Everything that could read or write files, start anything, load bytecode, tell addresses of memory, or
/// keep the processor busy where CLuaWatch does not see it, is missing or replaced. docs/script-engines.md
/// lists what differs.
/// @{
void OpenLuaBase(lua_State* state);
void OpenLuaStrings(lua_State* state);
void OpenLuaTables(lua_State* state);
/// `seed` starts the random numbers.
void OpenLuaMath(lua_State* state, long long seed);
/// @}

/// Pushes the text of any value, without addresses; calls its "__tostring".
void PushLuaText(lua_State* state, int index);

}  // namespace quorbel
