#include "components/lua_engine/LuaRun.h"

#include <algorithm>
#include <csetjmp>
#include <lua.hpp>
#include <random>

#include "components/lua_engine/LuaLibrary.h"
#include "components/lua_engine/LuaMemory.h"
#include "components/lua_engine/LuaWatch.h"
#include "platform/Error.h"

namespace quorbel {

namespace {

constexpr std::size_t kLongestMessage = 1024;
/// Virtual instructions between two looks at the time, at most. Every call of a function is one as well.
constexpr int kInstructionsBetweenChecks = 200;
/// The same times the bytes of the longest text: an instruction can compare texts, which takes about 10 ns
/// for each byte when all of them are zero.
constexpr std::size_t kBytesBetweenChecks = kLongestLuaText;
/// Bytes of an allocation that is worth a look at the time: the text to come will be filled.
constexpr std::size_t kLargeAllocation = 4096;

enum class End { Value, TimeUp, MemoryShort, ScriptError };

/// One run: the state and its bounds.
class CLuaRun {
 public:
    CLuaRun(const CLuaCall& call, const CLuaBounds& bounds)
        : m_call(call), m_memory(bounds.memory), m_watch(bounds.now, bounds.time) {}

    /// Everything that may jump happens in here.
    [[gnu::noinline]] End Perform() {
        if (setjmp(m_watch.Escape()) != 0) return End::TimeUp;
        m_state = lua_newstate(&CLuaRun::Allocate, this);
        if (!m_state) return End::MemoryShort;
        *static_cast<CLuaWatch**>(lua_getextraspace(m_state)) = &m_watch;
        SetHook(m_state);
        lua_pushcfunction(m_state, &CLuaRun::Main);
        lua_pushlightuserdata(m_state, this);
        switch (lua_pcall(m_state, 1, 1, 0)) {
            case LUA_OK: return End::Value;
            case LUA_ERRMEM: return End::MemoryShort;
            default: return End::ScriptError;
        }
    }

    std::variant<CLuaValue, CLuaFailure> Value() const;
    std::string ErrorMessage() const;

 private:
    static void* Allocate(void* run, void* block, std::size_t oldSize, std::size_t size) {
        auto& self = *static_cast<CLuaRun*>(run);
        if (size >= kLargeAllocation) self.m_watch.Check();
        if (!block && oldSize == LUA_TSTRING && !self.AdmitText(size)) return nullptr;
        void* const resized = self.m_memory.Resize(block, oldSize, size);
        // Lua collects all garbage now, and tries again.
        if (!resized && size != 0) self.m_watch.Check();
        return resized;
    }
    bool AdmitText(std::size_t size);
    void SetHook(lua_State* state) const;
    static void OnHook(lua_State* state, lua_Debug*) { CLuaWatch::Of(state).Check(); }
    static int Main(lua_State* state);
    void OpenLibraries() const;
    int PushArguments() const;
    void Push(const CLuaValue& value) const;

    const CLuaCall& m_call;
    const long long m_seed = static_cast<long long>(std::random_device{}()) << 32 | std::random_device{}();
    CLuaMemory m_memory;
    CLuaWatch m_watch;
    int m_instructionsBetweenChecks = kInstructionsBetweenChecks;
    /// Never closed: its memory goes as a whole.
    lua_State* m_state = nullptr;
};

/// Has all states look at the time more often, now and for the rest of the run, if the text is the longest.
bool CLuaRun::AdmitText(std::size_t size) {
    constexpr std::size_t kMostOverhead = 64;
    if (size > kLongestLuaText + kMostOverhead) return false;
    const int most = std::max(1, static_cast<int>(kBytesBetweenChecks / size));
    if (most < m_instructionsBetweenChecks) {
        m_instructionsBetweenChecks = most;
        m_memory.ForEachState([this](lua_State* state) { SetHook(state); });
    }
    return true;
}

/// A coroutine begins with the hook of the state that makes it.
void CLuaRun::SetHook(lua_State* state) const {
    lua_sethook(state, &CLuaRun::OnHook, LUA_MASKCALL | LUA_MASKCOUNT, m_instructionsBetweenChecks);
}

void CLuaRun::OpenLibraries() const {
    OpenLuaBase(m_state);
    OpenLuaStrings(m_state);
    OpenLuaTables(m_state);
    OpenLuaMath(m_state, m_seed);
    luaL_requiref(m_state, LUA_UTF8LIBNAME, luaopen_utf8, 1);
    luaL_requiref(m_state, LUA_COLIBNAME, luaopen_coroutine, 1);
    lua_settop(m_state, 0);
}

int CLuaRun::Main(lua_State* state) {
    const auto& self = *static_cast<const CLuaRun*>(lua_touserdata(state, 1));
    const auto& call = self.m_call;
    self.OpenLibraries();
    if (call.source.size() > kLongestLuaSource) return luaL_error(state, "script: source too long");
    if (luaL_loadbufferx(state, call.source.data(), call.source.size(), "=script", "t") != LUA_OK) {
        return lua_error(state);
    }
    lua_call(state, 0, 0);
    lua_getglobal(state, call.function.c_str());
    if (!lua_isfunction(state, -1)) {
        return luaL_error(state, "script: no function '%s'", call.function.c_str());
    }
    lua_call(state, self.PushArguments(), 1);
    return 1;
}

int CLuaRun::PushArguments() const {
    const auto& [source, function, positional, named] = m_call;
    const std::size_t count = positional.size() + (named.empty() ? 0 : 1);
    constexpr std::size_t kSpare = 4;
    if (count > LUAI_MAXSTACK) luaL_error(m_state, "script: too many arguments");
    luaL_checkstack(m_state, static_cast<int>(count + kSpare), "too many arguments");
    for (const auto& value : positional) Push(value);
    if (!named.empty()) lua_newtable(m_state);
    for (const auto& [name, value] : named) {
        lua_pushlstring(m_state, name.data(), name.size());
        Push(value);
        lua_rawset(m_state, -3);
    }
    return static_cast<int>(count);
}

void CLuaRun::Push(const CLuaValue& value) const {
    if (const auto* const truth = std::get_if<bool>(&value)) {
        lua_pushboolean(m_state, *truth);
    } else if (const auto* const integer = std::get_if<std::int64_t>(&value)) {
        lua_pushinteger(m_state, *integer);
    } else if (const auto* const number = std::get_if<double>(&value)) {
        lua_pushnumber(m_state, *number);
    } else if (const auto* const text = std::get_if<std::string>(&value)) {
        lua_pushlstring(m_state, text->data(), text->size());
    } else {
        lua_pushnil(m_state);
    }
}

std::variant<CLuaValue, CLuaFailure> CLuaRun::Value() const {
    switch (lua_type(m_state, -1)) {
        case LUA_TNIL: return CLuaValue();
        case LUA_TBOOLEAN: return CLuaValue(lua_toboolean(m_state, -1) != 0);
        case LUA_TNUMBER:
            if (lua_isinteger(m_state, -1)) {
                return CLuaValue(std::in_place_type<std::int64_t>, lua_tointeger(m_state, -1));
            }
            return CLuaValue(lua_tonumber(m_state, -1));
        case LUA_TSTRING: {
            std::size_t size = 0;
            const char* const text = lua_tolstring(m_state, -1, &size);
            return CLuaValue(std::string(text, size));
        }
        default:
            return CLuaFailure{E_FAIL, std::string("script: the result is a ") + luaL_typename(m_state, -1)};
    }
}

std::string CLuaRun::ErrorMessage() const {
    // Nothing is converted here: that could call the script, or fail.
    if (lua_type(m_state, -1) != LUA_TSTRING) {
        return std::string("script: the error is a ") + luaL_typename(m_state, -1);
    }
    std::size_t size = 0;
    const char* const text = lua_tolstring(m_state, -1, &size);
    return std::string(text, std::min(size, kLongestMessage));
}

}  // namespace

CLuaWatch& CLuaWatch::Of(lua_State* state) noexcept {
    return **static_cast<CLuaWatch**>(lua_getextraspace(state));
}

std::variant<CLuaValue, CLuaFailure> RunLua(const CLuaCall& call, const CLuaBounds& bounds) {
    CLuaRun run(call, bounds);
    switch (run.Perform()) {
        case End::Value: return run.Value();
        case End::ScriptError: return CLuaFailure{E_FAIL, run.ErrorMessage()};
        case End::MemoryShort: return CLuaFailure{E_OUTOFMEMORY, "script: not enough memory"};
        case End::TimeUp: break;
    }
    return CLuaFailure{HResultFromWin32(ToNumber(ErrorCode::Timeout)), "script: the time is up"};
}

}  // namespace quorbel
