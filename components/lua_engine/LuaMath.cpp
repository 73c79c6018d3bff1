#include <lua.hpp>

#include "components/lua_engine/LuaLibrary.h"

namespace quorbel {

namespace {

/// math.randomseed, but for its results and what it does without arguments, which tell and use an address.
int RandomSeed(lua_State* state) {
    const int count = lua_gettop(state);
    if (count == 0) return 0;
    lua_pushvalue(state, lua_upvalueindex(1));
    lua_insert(state, 1);
    lua_call(state, count, 0);
    return 0;
}

}  // namespace

void OpenLuaMath(lua_State* state, long long seed) {
    luaL_requiref(state, LUA_MATHLIBNAME, luaopen_math, 1);
    lua_getfield(state, -1, "randomseed");
    lua_pushvalue(state, -1);
    lua_pushinteger(state, seed);
    lua_call(state, 1, 0);
    lua_pushcclosure(state, RandomSeed, 1);
    lua_setfield(state, -2, "randomseed");
    lua_pop(state, 1);
}

}  // namespace quorbel
