#include "tests/components/lua_engine/LuaBesideStock.h"

namespace quorbel {
namespace {

TEST(LuaTables, AreTreatedAsByThoseOfLua) {
    CLuaBesideStock lua(LUA_TABLIBNAME, luaopen_table, &OpenLuaTables);
    EXPECT_EQ(lua.Run(R"(
        assert(table.insert ~= stock.insert)
        math.randomseed(1)
        local most, least = math.maxinteger, math.mininteger
        local function pick(list) return list[math.random(#list)] end
        local function place() return math.random(-1, 8) end
        local function any() return pick{place(), place(), place(), least, most, 2.0, 'x'} end
        local function some(...) return stock.unpack({...}, 1, math.random(0, select('#', ...))) end
        local function element() return pick{1, 2, 2.5, 'a', 'b', false, {}} end
        local function elements()
            local list, one = {}, pick{element, element, function() return math.random(9) end}
            for index = 1, math.random(0, 7) do list[index] = one() end
            return list
        end
        -- A table that tells how it was used, at times one with metamethods only.
        local function given(list, isProxy)
            local values, log = {}, {}
            for key, value in pairs(list) do values[key] = value end
            if not isProxy then return values, values, log end
            local function note(...) log[#log + 1] = stock.concat({...}, ' ') end
            return setmetatable({}, {
                __index = function(_, key) note('get', key) return values[key] end,
                __newindex = function(_, key, value) note('set', key) values[key] = value end,
                __len = function() note('length') return #values end}), values, log
        end
        local function show(...)
            local shown = stock.pack(...)
            for index = 1, shown.n do shown[index] = type(shown[index]) == 'table' and '{}' or tostring(shown[index]) end
            return stock.concat(shown, ',')
        end
        local function outcome(library, name, list, isProxy, other, arguments)
            local t, values, log = given(list, isProxy)
            local u = other and given(other, false)
            local results = show(pcall(function()
                if name == 'move' then arguments[4] = u end
                local found = stock.pack(library[name](t, stock.unpack(arguments, 1, arguments.n)))
                return stock.unpack(found, 1, found.n)
            end))
            return stock.concat({results:gsub('%[string.-%]:%d+: ', ''):gsub("#%d to '.-' ", ''), show(stock.unpack(values, -2, 17)),
                                 show(stock.unpack(u or {}, -2, 17)), stock.concat(log, ';')}, '|')
        end
        local function less(x, y) return tostring(x) < tostring(y) end
        local choose = {
            insert = function() return some(any(), element(), 1) end,
            remove = function() return some(any(), 1) end,
            concat = function() return some(pick{'', ', ', 5, {}}, pick{place(), place(), least}, any()) end,
            unpack = function() return some(any(), any()) end,
            sort = function() return some(pick{less, less, function(x, y) return less(y, x) end, function() return true end, 5}) end,
            move = function() return some(pick{place(), place(), least}, place(), pick{place(), place(), most}, 1) end,
            pack = function() return some(1, nil, 2) end,
        }
        local names = {'insert', 'remove', 'concat', 'unpack', 'sort', 'move', 'pack'}
        local fine = {}
        for round = 1, 20000 do
            local name, list, isProxy = pick(names), elements(), pick{true, false}
            local arguments = stock.pack(choose[name]())
            local other = name == 'move' and arguments.n == 4 and elements() or nil
            local ours = outcome(table, name, list, isProxy, other, arguments)
            local theirs = outcome(stock, name, list, isProxy, other, arguments)
            if ours ~= theirs then
                return ('%s {%s} (%s): %s instead of %s'):format(
                    name, show(stock.unpack(list, 1, 7)), show(stock.unpack(arguments, 1, arguments.n)), ours, theirs)
            end
            if ours:find('^true') then fine[name] = (fine[name] or 0) + 1 end
        end
        for _, name in ipairs(names) do assert((fine[name] or 0) > 300, name) end
        return 'the same')"),
              "the same");
}

}  // namespace
}  // namespace quorbel
