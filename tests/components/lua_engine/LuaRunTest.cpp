#include <cmath>

#include "components/lua_engine/LuaLibrary.h"
#include "components/lua_engine/LuaRun.h"

namespace quorbel {
namespace {

constexpr auto kTimeUp = static_cast<HRESULT>(0x800705B4);
using Nil = std::monostate;
using Integer = std::int64_t;
using namespace std::string_literals;

/// Without an end.
CLuaBounds MemoryBound() {
    return {.time = std::chrono::hours(24)};
}

/// Ends after so many looks at the clock, each of which takes a millisecond: what looks ends, and what does
/// not would never end.
CLuaBounds BoundByLooks() {
    constexpr int kLooks = 4000;
    static thread_local std::chrono::steady_clock::time_point time;
    return {.time = std::chrono::milliseconds(kLooks),
            .now = [] { return time += std::chrono::milliseconds(1); }};
}

CLuaValue Value(const std::string& source, std::vector<CLuaValue> positional = {},
                std::vector<std::pair<std::string, CLuaValue>> named = {}) {
    const auto outcome = RunLua({source, "f", std::move(positional), std::move(named)}, MemoryBound());
    if (const auto* const failure = std::get_if<CLuaFailure>(&outcome)) {
        ADD_FAILURE() << source << "\n" << failure->message;
        return {};
    }
    return std::get<CLuaValue>(outcome);
}

CLuaFailure Failure(const std::string& source, const CLuaBounds& bounds = MemoryBound()) {
    const auto outcome = RunLua({source, "f", {}, {}}, bounds);
    if (const auto* const failure = std::get_if<CLuaFailure>(&outcome)) return *failure;
    ADD_FAILURE() << "no failure: " << source;
    return {S_OK, {}};
}

CLuaValue Text(std::string text) {
    return text;
}

TEST(LuaRun, PassesValuesOfEveryTypeThrough) {
    const CLuaValue values[] = {
        Nil(),
        true,
        false,
        Integer{0},
        std::numeric_limits<Integer>::min(),
        std::numeric_limits<Integer>::max(),
        0.5,
        1e308,
        -INFINITY,
        Text(""),
        Text("a\0b"s),
        Text("\xFF\xFE"),
        Text(std::string(1 << 20, 'x')),
    };
    for (const auto& value : values) EXPECT_EQ(Value("function f(x) return x end", {value}), value);
    EXPECT_EQ(Value("function f(x) return math.type(x) end", {CLuaValue(2.0)}), Text("float"));
    EXPECT_EQ(Value("function f(x) return math.type(x) end", {CLuaValue(Integer{2})}), Text("integer"));
}

TEST(LuaRun, GivesTheNamedArgumentsAsTheLastOne) {
    const std::string source =
        "function f(...) local t = select(-1, ...); return select('#', ...) .. "
        "(type(t) == 'table' and t.size .. t['a b'] or '') end";
    EXPECT_EQ(Value(source, {Nil(), Integer{1}}), Text("2"));
    EXPECT_EQ(Value(source, {Nil()}, {{"size", Integer{5}}, {"a b", Text("x")}}), Text("25x"));
}

TEST(LuaRun, ReturnsTheFirstResult) {
    const std::pair<std::string, CLuaValue> cases[] = {
        {"function f() end", Nil()},
        {"function f() return 1, 2 end", Integer{1}},
        {"f = tostring", Text("nil")},
        {"local n = 0; function g() n = n + 1; return n end; g(); f = function() return g() end", Integer{2}},
    };
    for (const auto& [source, value] : cases) {
        EXPECT_EQ(Value(source,
                        source == "f = tostring" ? std::vector<CLuaValue>{Nil()} : std::vector<CLuaValue>{}),
                  value)
            << source;
    }
}

TEST(LuaRun, BeginsEachRunAnew) {
    const std::string source =
        "seen = (seen or 0) + 1; string.seen = (string.seen or 0) + 1 "
        "function f() return seen + string.seen end";
    for (int run = 0; run != 3; ++run) EXPECT_EQ(Value(source), CLuaValue(Integer{2}));
}

TEST(LuaRun, ReportsErrorsOfTheScriptByItsLines) {
    const std::tuple<std::string, HRESULT, std::string> cases[] = {
        {"x = = 1", E_FAIL, "script:1: unexpected symbol near '='"},
        {"\n\nfunction f() error('no\\0such') end", E_FAIL, "script:3: no\0such"s},
        {"function f() return nil .. 'x' end", E_FAIL, "script:1: attempt to concatenate a nil value"},
        {"function g() end", E_FAIL, "script: no function 'f'"},
        {"f = 5", E_FAIL, "script: no function 'f'"},
        {"function f() error({}) end", E_FAIL, "script: the error is a table"},
        {"function f() error(nil) end", E_FAIL, "script: the error is a nil"},
        {"function f() error(setmetatable({}, {__tostring = function() while true do end end})) end", E_FAIL,
         "script: the error is a table"},
        {"function f() error(('x'):rep(1e6), 0) end", E_FAIL, std::string(1024, 'x')},
        {"function f() return {} end", DISP_E_TYPEMISMATCH, "script: the result is a table"},
        {"function f() return f end", DISP_E_TYPEMISMATCH, "script: the result is a function"},
        {"function f() return ('x'):rep(17 * 2^20 // 1 | 0) end", E_OUTOFMEMORY,
         "script: the result is too long"},
        {"\x1BLua", E_FAIL, "attempt to load a binary chunk (mode is 't')"},
        {std::string(kLongestLuaSource + 1, ' '), E_FAIL, "script: source too long"},
        {"function f() return ('x'):gsub('x', f) end", E_FAIL, "C stack overflow"},
    };
    for (const auto& [source, result, message] : cases) {
        const auto failure = Failure(source);
        EXPECT_EQ(failure.result, result) << source.substr(0, 100);
        EXPECT_EQ(failure.message.substr(0, message.size()), message) << source.substr(0, 100);
    }
}

TEST(LuaRun, EndsWhateverTriesToRunForEver) {
    const std::string forEver = "function() while true do end end";
    const std::string sources[] = {
        "while true do end",
        "function f() return f() end",
        "function f() goto again; ::again:: goto again end",
        "function f() while true do pcall(" + forEver + ") end end",
        "function f() while true do pcall(error) end end",
        "function f() xpcall(" + forEver + ", " + forEver + ") end",
        "function f() xpcall(error, " + forEver + ") end",
        "function f() coroutine.wrap(" + forEver + ")() end",
        "function f() while true do coroutine.resume(coroutine.create(" + forEver + ")) end end",
        "function f() while true do coroutine.wrap(function() coroutine.yield() end)() end end",
        "function f() local c = coroutine.create(function() local x <close> = setmetatable({}, {__close = " +
            forEver + "}) while true do end end); coroutine.resume(c); coroutine.close(c) end",
        "function f() local x <close> = setmetatable({}, {__close = " + forEver + "}); error('x') end",
        "function f() return tostring(setmetatable({}, {__tostring = " + forEver + "})) end",
        "function f() return string.format('%s', setmetatable({}, {__tostring = " + forEver + "})) end",
        "function f() return setmetatable({}, {__index = " + forEver + "}).x end",
        "function f() load('while true do end')() end",
        "function f() local s = ('x'):rep(1e5); local t = s .. 'y'; s = s .. 'z'; while true do local _ = s "
        "< t end end",
        "function f() while true do local s = ('x'):rep(1e5) end end",
        "function f() while true do pcall(string.rep, 'x', 1e8) end end",
        // Patterns that go back again and again.
        "function f() return ('a'):rep(60):find(('.-'):rep(60) .. 'b') end",
        "function f() return ('a'):rep(60):match(('a*'):rep(60) .. 'b') end",
        "function f() return ('a'):rep(60):gsub(('a?'):rep(60) .. ('a'):rep(60) .. 'b', '') end",
        "function f() return ('a'):rep(60):gmatch(('a+'):rep(30) .. 'b')() end",
        "function f() return ('('):rep(1e6):find('%b()') end",
        "function f() return ('a'):rep(1e6):find('(.*)%1b') end",
        "function f() for _ in ('a'):rep(1e6):gmatch('.-b') do end end",
        // Lengths that are none, and tables that are not what they seem.
        "function f() table.insert(setmetatable({}, {__len = function() return 1 << 62 end}), 1, 1) end",
        "function f() table.remove(setmetatable({}, {__len = function() return 1 << 62 end}), 1) end",
        "function f() table.move({}, 1, 1 << 62, 2) end",
        "function f() table.concat(setmetatable({}, {__index = table.concat}), '', 1, 1 << 62) end",
        "function f() table.sort({3, 2, 1}, " + forEver + ") end",
        "function f() local t = {}; for i = 1, 1e5 do t[i] = -i end; while true do table.sort(t) end end",
        "function f() local t = {1}; for i = 1, 100 do t = setmetatable({}, {__index = t}) end;"
        " while true do table.unpack(t, 1, 1e5) end end",
        "function f() for _ in pairs(setmetatable({}, {__pairs = function() return function() return 1 end "
        "end})) do end end",
    };
    for (const auto& source : sources) {
        SCOPED_TRACE(source);
        EXPECT_EQ(Failure(source, BoundByLooks()).result, kTimeUp);
    }
}

TEST(LuaRun, IsNotHeldUpByWhatEndsOnlyIfItIsDoneInTheRightWay) {
    const std::pair<std::string, CLuaValue> cases[] = {
        {"function f() return #(''):rep(1 << 62) + #(''):rep(1 << 62, '') end", Integer{0}},
        {"function f() return ('a'):rep(5e6):find(('a'):rep(2e6) .. 'b', 1, true) end", Nil()},
        {"local mt = {__gc = function() while true do end end}; local other = {}"
         "function f() for i = 1, 1e4 do setmetatable({}, mt); setmetatable({}, other) end;"
         " other.__gc = mt.__gc; for i = 1, 1e4 do setmetatable({}, other) end return 1 end",
         Integer{1}},
    };
    for (const auto& [source, value] : cases) EXPECT_EQ(Value(source), value) << source;
}

TEST(LuaRun, BoundsMemory) {
    const std::string sources[] = {
        "function f() local s = 'x'; while true do s = s .. s end end",
        "function f() local t = {}; for i = 1, 1e8 do t[i] = i end end",
        "function f() return ('x'):rep(1 << 30) end",
        "function f() return ('x'):rep(1 << 20):gsub('x', ('y'):rep(1 << 20)) end",
        "function f() return table.concat({'x', 'x'}, ('y'):rep(65 << 20)) end",
        "function f() local t = {}; for i = 1, 1e7 do t = {t} end end",
        "function f() return 1 + f() end",
    };
    for (const auto& source : sources) {
        EXPECT_EQ(Failure(source).result, E_OUTOFMEMORY) << source;
    }
    EXPECT_EQ(Value("function f() return (pcall(string.rep, 'x', 1e9)) end"), CLuaValue(false))
        << "and goes on";
    EXPECT_EQ(Value("function f() for i = 1, 10 do local s = ('x'):rep(1024):rep(30 << 10) end return 1 end"),
              CLuaValue(Integer{1}))
        << "garbage does not count";
    EXPECT_EQ(std::get<CLuaFailure>(RunLua({"", "f", {}, {}}, {.memory = 100})).result, E_OUTOFMEMORY);
    EXPECT_EQ(std::get<CLuaFailure>(RunLua({"", "f", {}, {}}, {.memory = 10000})).result, E_OUTOFMEMORY);
}

TEST(LuaRun, HasNothingThatReachesOutOfTheScript) {
    const char* const names[] = {"io",       "os",    "debug", "package",        "require",    "dofile",
                                 "loadfile", "print", "warn",  "collectgarbage", "string.dump"};
    for (const std::string name : names)
        EXPECT_EQ(Value("function f() return " + name + " end"), CLuaValue()) << name;
    EXPECT_EQ(Value("function f() return (load('\\27Lua')) end"), CLuaValue());
    EXPECT_EQ(Value("function f() return (pcall(load, (' '):rep(1e6))) end"), CLuaValue(false));
    const std::pair<std::string, CLuaValue> texts[] = {
        {"tostring({})", Text("table")},
        {"tostring(print or tostring)", Text("function")},
        {"string.format('%s %s', {}, coroutine.create(tostring))", Text("table thread")},
        {"string.format('%s|%5.1f|%q|%%p', setmetatable({}, {__tostring = function() return 'me' end}), 2.5, "
         "'x')",
         Text("me|  2.5|\"x\"|%p")},
        {"select('#', math.randomseed()) + select('#', math.randomseed(1))", Integer{0}},
        {"math.randomseed(42) or math.random(1000) == (math.randomseed(42) or math.random(1000))", true},
    };
    for (const auto& [expression, text] : texts) {
        EXPECT_EQ(Value("function f() return " + expression + " end"), text) << expression;
    }
    EXPECT_EQ(Failure("function f() return ('%-20p'):format({}) end").result, E_FAIL);
}

TEST(LuaRun, GivesEveryTableTheMetatableThatItWasGiven) {
    const std::pair<std::string, CLuaValue> cases[] = {
        {"local m = {}; return getmetatable(setmetatable({}, m)) == m", true},
        {"local m = {}; local t = setmetatable({}, m); setmetatable(t, nil); return getmetatable(t)", Nil()},
        {"return getmetatable('').__index == string", true},
        {"return getmetatable(setmetatable({}, {__metatable = 'mine'}))", Text("mine")},
        {"return (pcall(setmetatable, setmetatable({}, {__metatable = 1}), {}))", false},
        {"local C = {}; C.__index = C; local o = setmetatable({}, C); function C.hello() return 5 end; "
         "return o.hello()",
         Integer{5}},
        {"local m = {__add = function() return 1 end}; local o = setmetatable({}, m);"
         "m.__add = function() return 2 end; setmetatable({}, m); return o + o",
         Integer{2}},
        {"local t = setmetatable({}, {__mode = 'k'}); t[{}] = 1; for i = 1, 3e5 do local _ = {} end "
         "return next(t) ~= nil",
         true},
        {"return #setmetatable({}, {__len = function() return 7 end})", Integer{7}},
    };
    for (const auto& [body, value] : cases) EXPECT_EQ(Value("function f() " + body + " end"), value) << body;
}

TEST(LuaRun, HasTableFunctionsThatDoWhatTheManualSays) {
    const std::pair<std::string, CLuaValue> cases[] = {
        {"table.insert(t, 'd'); return table.concat(t)", Text("abcd")},
        {"table.insert(t, 1, 'd'); return table.concat(t)", Text("dabc")},
        {"table.insert(t, 4, 'd'); return table.concat(t)", Text("abcd")},
        {"return (pcall(table.insert, t, 5, 'd'))", false},
        {"return (pcall(table.insert, t, 0, 'd'))", false},
        {"return (pcall(table.insert, t))", false},
        {"return table.remove(t) .. #t", Text("c2")},
        {"return table.remove(t, 1) .. table.concat(t)", Text("abc")},
        {"return tostring(table.remove(t, 4)) .. #t", Text("nil3")},
        {"return (pcall(table.remove, t, 5))", false},
        {"return tostring(table.remove({})) .. tostring(table.remove({}, 0))", Text("nilnil")},
        {"return table.concat(t, ', ', 2)", Text("b, c")},
        {"return table.concat(t, ', ', 2, 2) .. table.concat(t, 'x', 3, 2) .. table.concat({1, 2.5})",
         Text("b12.5")},
        {"return (pcall(table.concat, {1, {}}))", false},
        {"return table.concat(table.move(t, 1, 3, 2))", Text("aabc")},
        {"return table.concat(table.move(t, 2, 3, 1))", Text("bcc")},
        {"return table.concat(table.move(t, 1, 3, 3, {'x', 'y'}))", Text("xyabc")},
        {"return (pcall(table.move, t, 1, math.maxinteger, 2))", false},
        {"return select('#', table.unpack(t, -1, 5))", Integer{7}},
        {"return (pcall(table.unpack, t, 1, 1e7 // 1 | 0))", false},
        {"return (pcall(table.unpack, t, math.mininteger, math.maxinteger))", false},
        {"return table.concat({table.unpack(t)})", Text("abc")},
        {"t = {3, 1, 2}; table.sort(t); return table.concat(t)", Text("123")},
        {"table.sort(t, function(x, y) return x > y end); return table.concat(t)", Text("cba")},
        {"return (pcall(table.sort, {1, 'x'}))", false},
        {"return table.pack(1, nil, 3).n", Integer{3}},
    };
    for (const auto& [body, value] : cases) {
        EXPECT_EQ(Value("function f() local t = {'a', 'b', 'c'}; " + body + " end"), value) << body;
    }
}

}  // namespace
}  // namespace quorbel
