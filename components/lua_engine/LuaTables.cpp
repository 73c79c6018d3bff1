#include <lua.hpp>

#include "components/lua_engine/LuaLibrary.h"
#include "components/lua_engine/LuaWatch.h"

namespace quorbel {

namespace {

// The loops of Lua's own functions end when they have come to the length that a table claims to have, which
// can be any number, and look up chains of metatables on the way. These count their steps.

/// About what one element costs, with room for a chain of metatables.
constexpr std::uint64_t kStepsPerElement = 16;

void Spend(lua_State* state) {
    CLuaWatch::Of(state).Spend(kStepsPerElement);
}

int Insert(lua_State* state) {
    luaL_checktype(state, 1, LUA_TTABLE);
    const auto end = static_cast<lua_Integer>(static_cast<lua_Unsigned>(luaL_len(state, 1)) + 1);
    lua_Integer position = end;
    if (lua_gettop(state) == 3) {
        position = luaL_checkinteger(state, 2);
        luaL_argcheck(state, static_cast<lua_Unsigned>(position) - 1 < static_cast<lua_Unsigned>(end), 2,
                      "position out of bounds");
        for (lua_Integer index = end; index > position; --index) {
            Spend(state);
            lua_geti(state, 1, index - 1);
            lua_seti(state, 1, index);
        }
    } else if (lua_gettop(state) != 2) {
        return luaL_error(state, "wrong number of arguments to 'insert'");
    }
    lua_seti(state, 1, position);
    return 0;
}

int Remove(lua_State* state) {
    luaL_checktype(state, 1, LUA_TTABLE);
    const lua_Integer size = luaL_len(state, 1);
    lua_Integer position = luaL_optinteger(state, 2, size);
    if (!lua_isnoneornil(state, 2)) {
        const auto end = static_cast<lua_Unsigned>(size) + 1;
        luaL_argcheck(state, static_cast<lua_Unsigned>(position) - 1 < end || (size == 0 && position == 0), 2,
                      "position out of bounds");
    }
    lua_geti(state, 1, position);
    for (; position < size; ++position) {
        Spend(state);
        lua_geti(state, 1, position + 1);
        lua_seti(state, 1, position);
    }
    lua_pushnil(state);
    lua_seti(state, 1, position);
    return 1;
}

void MoveOne(lua_State* state, int target, lua_Integer from, lua_Integer to) {
    Spend(state);
    lua_geti(state, 1, from);
    lua_seti(state, target, to);
}

/// table.move(from, first, last, to [, target])
int Move(lua_State* state) {
    const lua_Integer first = luaL_checkinteger(state, 2);
    const lua_Integer last = luaL_checkinteger(state, 3);
    const lua_Integer to = luaL_checkinteger(state, 4);
    const int target = lua_isnoneornil(state, 5) ? 1 : 5;
    luaL_checktype(state, 1, LUA_TTABLE);
    luaL_checktype(state, target, LUA_TTABLE);
    if (last >= first) {
        luaL_argcheck(state, first > 0 || last < LUA_MAXINTEGER + first, 3, "too many elements to move");
        const lua_Integer count = last - first + 1;
        luaL_argcheck(state, to <= LUA_MAXINTEGER - count + 1, 4, "destination wrap around");
        const bool isUpwards =
            to > last || to <= first || (target != 1 && !lua_compare(state, 1, target, LUA_OPEQ));
        for (lua_Integer done = 0; done != count; ++done) {
            const lua_Integer offset = isUpwards ? done : count - 1 - done;
            MoveOne(state, target, first + offset, to + offset);
        }
    }
    lua_pushvalue(state, target);
    return 1;
}

void AddElement(lua_State* state, luaL_Buffer& buffer, lua_Integer index) {
    Spend(state);
    lua_geti(state, 1, index);
    if (!lua_isstring(state, -1)) {
        luaL_error(state, "invalid value (%s) at index %I in table for 'concat'", luaL_typename(state, -1),
                   static_cast<LUAI_UACINT>(index));
    }
    luaL_addvalue(&buffer);
}

/// table.concat(list [, separator [, first [, last]]])
int Concat(lua_State* state) {
    luaL_checktype(state, 1, LUA_TTABLE);
    const lua_Integer size = luaL_len(state, 1);
    std::size_t separatorSize = 0;
    const char* const separator = luaL_optlstring(state, 2, "", &separatorSize);
    lua_Integer index = luaL_optinteger(state, 3, 1);
    const lua_Integer last = luaL_optinteger(state, 4, size);
    luaL_Buffer buffer;
    luaL_buffinit(state, &buffer);
    for (; index < last; ++index) {
        AddElement(state, buffer, index);
        luaL_addlstring(&buffer, separator, separatorSize);
    }
    if (index == last) AddElement(state, buffer, index);
    luaL_pushresult(&buffer);
    return 1;
}

/// table.unpack(list [, first [, last]])
int Unpack(lua_State* state) {
    luaL_checktype(state, 1, LUA_TTABLE);
    const lua_Integer first = luaL_optinteger(state, 2, 1);
    const lua_Integer last = lua_isnoneornil(state, 3) ? luaL_len(state, 1) : luaL_checkinteger(state, 3);
    if (first > last) return 0;
    const auto more = static_cast<lua_Unsigned>(last) - static_cast<lua_Unsigned>(first);
    constexpr lua_Unsigned kMost = LUAI_MAXSTACK;
    if (more >= kMost || !lua_checkstack(state, static_cast<int>(more) + 1)) {
        return luaL_error(state, "too many results to unpack");
    }
    const int count = static_cast<int>(more) + 1;
    for (int offset = 0; offset != count; ++offset) {
        Spend(state);
        lua_geti(state, 1, first + offset);
    }
    return count;
}

int IsLess(lua_State* state) {
    lua_pushboolean(state, lua_compare(state, 1, 2, LUA_OPLT));
    return 1;
}

/// table.sort(list [, isLess]): Lua's own, which compares without a call only if it is given no function.
int Sort(lua_State* state) {
    lua_settop(state, 2);
    if (lua_isnil(state, 2)) {
        lua_pushcfunction(state, IsLess);
        lua_replace(state, 2);
    }
    lua_pushvalue(state, lua_upvalueindex(1));
    lua_insert(state, 1);
    lua_call(state, 2, 0);
    return 0;
}

}  // namespace

void OpenLuaTables(lua_State* state) {
    luaL_requiref(state, LUA_TABLIBNAME, luaopen_table, 1);
    static constexpr luaL_Reg kReplaced[] = {{"concat", Concat}, {"insert", Insert}, {"move", Move},
                                             {"remove", Remove}, {"unpack", Unpack}, {nullptr, nullptr}};
    luaL_setfuncs(state, kReplaced, 0);
    lua_getfield(state, -1, "sort");
    lua_pushcclosure(state, Sort, 1);
    lua_setfield(state, -2, "sort");
    lua_pop(state, 1);
}

}  // namespace quorbel
