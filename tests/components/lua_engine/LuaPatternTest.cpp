#include <lua.hpp>

#include "components/lua_engine/LuaLibrary.h"
#include "components/lua_engine/LuaPattern.h"

namespace quorbel {
namespace {

/// A state with both string libraries: the scripts' as "string", Lua's own as "stock".
class LuaPatterns : public testing::Test {
 protected:
    LuaPatterns() {
        *static_cast<CLuaWatch**>(lua_getextraspace(m_state.get())) = &m_watch;
        luaL_openlibs(m_state.get());
        luaL_requiref(m_state.get(), "stock", luaopen_string, 1);
        lua_pushnil(m_state.get());
        luaL_getsubtable(m_state.get(), LUA_REGISTRYINDEX, LUA_LOADED_TABLE);
        lua_pushnil(m_state.get());
        lua_setfield(m_state.get(), -2, LUA_STRLIBNAME);
        OpenLuaStrings(m_state.get());
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

TEST_F(LuaPatterns, MatchAsThoseOfLuaDo) {
    EXPECT_EQ(Run(R"(
        assert(string.find ~= stock.find)
        math.randomseed(1)
        local function pick(list) return list[math.random(#list)] end
        local singles = {'a', 'b', '.', '%a', '%d', '%S', '%W', '%.', '[ab]', '[^a]', '[a-c1]', '[%d.]', '[]]', '[^]b]', '[%]-]', '(', '-', '%x', '%u', '%-', '\0'}
        local counts = {'', '', '', '?', '*', '+', '-'}
        local others = {'%bab', '%f[%w]', '%f[^a]', '$'}
        local function pattern()
            local text, closed, isOpen = pick{'', '', '^'}, 0, false
            for _ = 1, math.random(5) do
                local kind = math.random(12)
                if kind == 1 then text = text .. pick(others)
                elseif kind == 2 and not isOpen then text = text .. '('; isOpen = true
                elseif kind == 3 and isOpen then text = text .. ')'; isOpen = false; closed = closed + 1
                elseif kind == 4 and closed > 0 and not isOpen then text = text .. '%' .. math.random(closed)
                elseif kind == 5 and not isOpen then text = text .. '()'; closed = closed + 1
                else
                    local single = pick(singles)
                    text = text .. (single == '(' and '%(' or single) .. pick(counts)
                end
            end
            return text .. (isOpen and ')' or '') .. pick{'', '', '$'}
        end
        local letters = {'a', 'a', 'b', 'c', '1', '.', ' ', ']', '-', '(', 'Z', '\0', '\xe4'}
        local function subject()
            local text = ''
            for _ = 1, math.random(0, 12) do text = text .. pick(letters) end
            return text
        end
        local function all(library, s, p, init)
            local seen = {}
            for a, b in library.gmatch(s, p, init) do seen[#seen + 1] = tostring(a) .. ',' .. tostring(b) end
            return table.concat(seen, ';')
        end
        local function show(...)
            local values = table.pack(...)
            for i = 1, values.n do values[i] = tostring(values[i]):gsub('^.-:%d+: ', '') end
            return table.concat(values, '|')
        end
        for round = 1, 5000 do
            local s, p, init = subject(), pattern(), pick{1, 1, 2, 5, 13, 14, -1, -4, -100, 0}
            local calls = {
                function(l) return l.find(s, p, init) end,
                function(l) return l.find(s, p, init, true) end,
                function(l) return l.match(s, p, init) end,
                function(l) return all(l, s, p, init) end,
                function(l) return l.gsub(s, p, '<%0%1%%>') end,
                function(l) return l.gsub(s, p, {a = 'A', [1] = false, [2] = 7}, 2) end,
                function(l) return l.gsub(s, p, function(x, y) return y end) end,
            }
            for number, call in ipairs(calls) do
                local ours, theirs = show(pcall(call, string)), show(pcall(call, stock))
                if ours ~= theirs then
                    return ('%q %q from %d, call %d: %s instead of %s'):format(s, p, init, number, ours, theirs)
                end
            end
        end
        return 'the same')"),
              "the same");
}

TEST_F(LuaPatterns, AreRefusedWhenTheyAreNone) {
    const std::pair<const char*, std::string_view> cases[] = {
        {"%", "malformed pattern (ends with '%')"},
        {"[a", "malformed pattern (missing ']')"},
        {"[]", "malformed pattern (missing ']')"},
        {"[^]", "malformed pattern (missing ']')"},
        {"[a%", "malformed pattern (missing ']')"},
        {"[%]", "malformed pattern (missing ']')"},
        {"%f", "missing '[' after '%f' in pattern"},
        {"%fa", "missing '[' after '%f' in pattern"},
        {"%b", "malformed pattern (missing arguments to '%b')"},
        {"%ba", "malformed pattern (missing arguments to '%b')"},
        {"(a", "unfinished capture"},
        {"a)", "invalid pattern capture"},
        {"(()", "unfinished capture"},
        {"%1", "invalid capture index"},
        {"(%1)", "invalid capture index"},
        {"(a)%2", "invalid capture index"},
        {"(a)%0", "invalid capture index"},
    };
    std::array<CLuaPatternItem, 8> items;
    for (const auto& [text, error] : cases) {
        const auto pattern = CLuaPattern::Compile(text, items.data());
        ASSERT_NE(pattern.error, nullptr) << text;
        EXPECT_EQ(pattern.error, error) << text;
    }
    EXPECT_EQ(Run("return (select(2, pcall(string.find, 'a', ('a?'):rep(201))))"), "pattern too complex");
    EXPECT_EQ(Run("return (string.find(('a'):rep(200), ('a?'):rep(200)))"), "1");
    EXPECT_EQ(Run("return (select(2, pcall(string.find, 'a', ('()'):rep(33))))"), "too many captures");
    EXPECT_EQ(Run("return select('#', string.find('a', ('()'):rep(32)))"), "34");
}

}  // namespace
}  // namespace quorbel
