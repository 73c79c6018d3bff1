#pragma once

#include <lua.hpp>
#include <memory>

#include "components/lua_engine/LuaLibrary.h"
#include "components/lua_engine/LuaWatch.h"

namespace quorbel {

/// A state with all of Lua's libraries, but that the one of this name is the scripts'; Lua's own is "stock".
class CLuaBesideStock {
 public:
    CLuaBesideStock(const char* name, lua_CFunction openStock, void (*open)(lua_State*)) {
        *static_cast<CLuaWatch**>(lua_getextraspace(m_state.get())) = &m_watch;
        luaL_openlibs(m_state.get());
        luaL_requiref(m_state.get(), "stock", openStock, 1);
        luaL_getsubtable(m_state.get(), LUA_REGISTRYINDEX, LUA_LOADED_TABLE);
        lua_pushnil(m_state.get());
        lua_setfield(m_state.get(), -2, name);
        open(m_state.get());
    }

    /// The text that the script gives.
    std::string Run(const char* source) {
        lua_settop(m_state.get(), 0);
        if (luaL_dostring(m_state.get(), source) != LUA_OK) return lua_tostring(m_state.get(), -1);
        return luaL_tolstring(m_state.get(), -1, nullptr);
    }

 private:
    CLuaWatch m_watch{&std::chrono::steady_clock::now, std::chrono::hours(24)};
    const std::unique_ptr<lua_State, decltype(&lua_close)> m_state{luaL_newstate(), &lua_close};
};

}  // namespace quorbel
