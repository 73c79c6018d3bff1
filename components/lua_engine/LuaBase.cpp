#include <initializer_list>
#include <lua.hpp>
#include <string_view>

#include "components/lua_engine/LuaLibrary.h"

namespace quorbel {

namespace {

int ToString(lua_State* state) {
    luaL_checkany(state, 1);
    PushLuaText(state, 1);
    return 1;
}

/// load(text [, name [, mode [, environment]]]): no functions and no bytecode.
int Load(lua_State* state) {
    constexpr int kEnvironment = 4;
    std::size_t size = 0;
    const char* const text = luaL_checklstring(state, 1, &size);
    luaL_argcheck(state, size <= kLongestLuaSource, 1, "source too long");
    const char* const name = luaL_optstring(state, 2, "=load");
    if (luaL_loadbufferx(state, text, size, name, "t") != LUA_OK) {
        luaL_pushfail(state);
        lua_insert(state, -2);
        return 2;
    }
    if (!lua_isnone(state, kEnvironment)) {
        lua_pushvalue(state, kEnvironment);
        if (!lua_setupvalue(state, -2, 1)) lua_pop(state, 1);
    }
    return 1;
}

// A table's metatable is a copy of the one that the script gave it, with these fields. Neither "__gc", whose
// functions run where no hook is called, nor "__mode", with which a collection can take time that grows with
// the square of the memory, ever gets into one. And while Lua goes from table to table along "__index",
// "__newindex" and "__call", it calls no hook; so functions stand for the tables of the first two, and the
// third is a function already.
constexpr std::string_view kMetamethods[] = {
    "__index", "__newindex", "__call",   "__tostring", "__name",  "__len",      "__eq",
    "__lt",    "__le",       "__concat", "__add",      "__sub",   "__mul",      "__div",
    "__mod",   "__pow",      "__unm",    "__idiv",     "__band",  "__bor",      "__bxor",
    "__shl",   "__shr",      "__bnot",   "__pairs",    "__close", "__metatable"};

constexpr int kCopies = lua_upvalueindex(1);     ///< a script's metatable -> its copy
constexpr int kOriginals = lua_upvalueindex(2);  ///< the other way round

/// "__index" that is a table, the upvalue.
int Index(lua_State* state) {
    lua_settop(state, 2);
    lua_gettable(state, lua_upvalueindex(1));
    return 1;
}

/// "__newindex" that is a table, the upvalue.
int NewIndex(lua_State* state) {
    lua_settop(state, 3);
    lua_settable(state, lua_upvalueindex(1));
    return 0;
}

/// Replaces the table on the top by the function that stands for it: the one that the copy has already, below
/// the name, or a new one.
void ReplaceByFunction(lua_State* state, lua_CFunction function) {
    constexpr int kCopy = -3;
    lua_pushvalue(state, -2);
    lua_rawget(state, kCopy - 1);
    if (lua_tocfunction(state, -1) == function && lua_getupvalue(state, -1, 1)) {
        const bool isSame = lua_rawequal(state, -1, -3);
        lua_pop(state, 1);
        if (isSame) return lua_replace(state, -2);
    }
    lua_pop(state, 1);
    lua_pushcclosure(state, function, 1);
}

/// Copies one field to the copy on the top.
void CopyMetamethod(lua_State* state, int index, std::string_view name) {
    lua_pushlstring(state, name.data(), name.size());
    lua_pushvalue(state, -1);
    const int type = lua_rawget(state, index);
    if (type == LUA_TTABLE && name == "__index") ReplaceByFunction(state, Index);
    if (type == LUA_TTABLE && name == "__newindex") ReplaceByFunction(state, NewIndex);
    if (type != LUA_TNIL && type != LUA_TFUNCTION && name == "__call") {
        luaL_error(state, "'__call' is no function");
    }
    lua_rawset(state, -3);
}

/// Pushes the copy of the table at `index`, brought up to date.
void PushCopy(lua_State* state, int index) {
    lua_pushvalue(state, index);
    if (lua_rawget(state, kCopies) == LUA_TNIL) {
        lua_pop(state, 1);
        lua_newtable(state);
        lua_pushvalue(state, index);
        lua_pushvalue(state, -2);
        lua_rawset(state, kCopies);
        lua_pushvalue(state, -1);
        lua_pushvalue(state, index);
        lua_rawset(state, kOriginals);
    }
    for (const auto name : kMetamethods) CopyMetamethod(state, index, name);
}

int SetMetatable(lua_State* state) {
    const int type = lua_type(state, 2);
    luaL_checktype(state, 1, LUA_TTABLE);
    luaL_argexpected(state, type == LUA_TNIL || type == LUA_TTABLE, 2, "nil or table");
    if (luaL_getmetafield(state, 1, "__metatable") != LUA_TNIL) {
        return luaL_error(state, "cannot change a protected metatable");
    }
    lua_settop(state, 2);
    if (type == LUA_TTABLE) PushCopy(state, 2);
    lua_setmetatable(state, 1);
    lua_settop(state, 1);
    return 1;
}

int GetMetatable(lua_State* state) {
    luaL_checkany(state, 1);
    if (luaL_getmetafield(state, 1, "__metatable") != LUA_TNIL) return 1;
    if (!lua_getmetatable(state, 1)) {
        lua_pushnil(state);
        return 1;
    }
    lua_rawget(state, kOriginals);
    return 1;
}

}  // namespace

void PushLuaText(lua_State* state, int index) {
    const int type = lua_type(state, index);
    const bool hasAddress =
        type != LUA_TNIL && type != LUA_TBOOLEAN && type != LUA_TNUMBER && type != LUA_TSTRING;
    if (hasAddress && luaL_getmetafield(state, index, "__tostring") == LUA_TNIL) {
        lua_pushstring(state, luaL_typename(state, index));
        return;
    }
    if (hasAddress) lua_pop(state, 1);
    luaL_tolstring(state, index, nullptr);
}

void OpenLuaBase(lua_State* state) {
    luaL_requiref(state, LUA_GNAME, luaopen_base, 1);
    for (const char* const name : {"collectgarbage", "dofile", "loadfile", "print", "warn"}) {
        lua_pushnil(state);
        lua_setfield(state, -2, name);
    }
    static constexpr luaL_Reg kReplaced[] = {{"tostring", ToString}, {"load", Load}, {nullptr, nullptr}};
    luaL_setfuncs(state, kReplaced, 0);
    static constexpr luaL_Reg kMetatables[] = {
        {"setmetatable", SetMetatable}, {"getmetatable", GetMetatable}, {nullptr, nullptr}};
    lua_newtable(state);
    lua_newtable(state);
    luaL_setfuncs(state, kMetatables, 2);
    lua_pop(state, 1);
}

}  // namespace quorbel
