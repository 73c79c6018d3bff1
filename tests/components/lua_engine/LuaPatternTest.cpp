#include "components/lua_engine/LuaPattern.h"
#include "tests/components/lua_engine/LuaBesideStock.h"

namespace quorbel {
namespace {

class LuaPatterns : public testing::Test {
 protected:
    std::string Run(const char* source) { return m_lua.Run(source); }

 private:
    CLuaBesideStock m_lua{LUA_STRLIBNAME, luaopen_string, &OpenLuaStrings};
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
