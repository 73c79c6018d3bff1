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
        {"function f() return {} end", E_FAIL, "script: the result is a table"},
        {"function f() return f end", E_FAIL, "script: the result is a function"},
        {"function f() return ('x'):rep(5 << 20) end", E_OUTOFMEMORY, "script: not enough memory"},
        {"function f() setmetatable({}, {__call = {}}) end", E_FAIL, "script:1: '__call' is no function"},
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
        {"function f() return ('a'):rep(4e6 // 1 | 0):find(('a'):rep(2e6) .. 'b', 1, true) end", Nil()},
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
    EXPECT_EQ(Value("function f() for i = 1, 100 do local s = ('x'):rep(1024):rep(3 << 10) end return 1 end"),
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
        {"getmetatable('').__index = nil; return ('x'):rep(2)", Text("xx")},
        {"local m = {__index = {x = 1}}; local t = setmetatable({}, m); m.__index = {x = 2};"
         "local u = setmetatable({}, m); return t.x + u.x",
         Integer{4}},
        {"local base = setmetatable({}, {__index = function(_, key) return key .. '!' end}); "
         "return setmetatable({}, {__index = setmetatable({}, {__index = base})}).x",
         Text("x!")},
        {"local m = {__newindex = {}}; local t = setmetatable({}, m); t.x = 5;"
         "return m.__newindex.x + (rawget(t, 'x') or 1)",
         Integer{6}},
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

TEST(LuaRun, LooksAtTheTimeTheMoreOftenTheLongerATextCanBe) {
    // Each of these executes a thousand instructions and little else behind the texts that it makes.
    const std::string loop = "for i = 1, 1000 do end ";
    const std::string makeText = "local s = ('x'):rep(4e6 // 1 | 0) ";
    const std::tuple<std::string, int, int> cases[] = {
        {loop, 5, 200},
        {"local s = ('x'):rep(4000) " + loop, 5, 200},
        {"local s = ('x'):rep(4e5 // 1 | 0) " + loop, 100, 400},
        {makeText + loop, 1000, 2000},
        {"local s = ('x'):rep(2e6 // 1 | 0); s = s .. s; " + loop, 1000, 2000},
        {makeText + "s = nil; " + loop, 1000, 2000},
        {makeText + "coroutine.wrap(function() " + loop + "end)()", 1000, 2000},
        {"coroutine.wrap(function() " + makeText + "end)() " + loop, 1000, 2000},
        {"local c = coroutine.wrap(function() coroutine.yield() " + loop + "end) c() " + makeText + "c()",
         1000, 2000},
        // However many tables are between.
        {"local t = {} for i = 1, 100 do t = setmetatable({}, {__index = t}) end local _ = t.x", 200, 400},
        {"local t = {} for i = 1, 100 do t = setmetatable({}, {__newindex = t}) end t.x = 1", 200, 400},
    };
    static int looks;
    const CLuaBounds bounds{.now = [] { return ++looks, std::chrono::steady_clock::time_point(); }};
    for (const auto& [body, least, most] : cases) {
        looks = 0;
        EXPECT_TRUE(std::holds_alternative<CLuaValue>(
            RunLua({"function f() " + body + " end", "f", {}, {}}, bounds)));
        EXPECT_GE(looks, least) << body;
        EXPECT_LE(looks, most) << body;
    }
}

TEST(LuaRun, HasTextsOfUpToALength) {
    const std::string longest(kLongestLuaText, 'x');
    EXPECT_EQ(Value("function f(x) return x:upper():lower() end", {CLuaValue(longest)}), CLuaValue(longest));
    EXPECT_EQ(Value("function f(x) return (pcall(function() return x .. x end)) end", {CLuaValue(longest)}),
              CLuaValue(false));
    const auto outcome =
        RunLua({"function f() end", "f", {CLuaValue(longest + std::string(100, 'x'))}, {}}, MemoryBound());
    ASSERT_TRUE(std::holds_alternative<CLuaFailure>(outcome));
    EXPECT_EQ(std::get<CLuaFailure>(outcome).result, E_OUTOFMEMORY);
}

}  // namespace
}  // namespace quorbel
