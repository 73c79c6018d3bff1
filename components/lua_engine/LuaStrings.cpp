#include <algorithm>
#include <cstring>
#include <lua.hpp>
#include <new>

#include "components/lua_engine/LuaLibrary.h"
#include "components/lua_engine/LuaPattern.h"

namespace quorbel {

namespace {

std::string_view CheckText(lua_State* state, int index) {
    std::size_t size = 0;
    const char* const text = luaL_checklstring(state, index, &size);
    return {text, size};
}

/// The offset that an optional argument means as a place to begin: negative numbers count from the end.
std::size_t CheckStart(lua_State* state, int index, std::size_t size) {
    const lua_Integer start = luaL_optinteger(state, index, 1);
    if (start > 0) return static_cast<std::size_t>(start) - 1;
    const auto fromEnd = lua_Unsigned{0} - static_cast<lua_Unsigned>(start);
    return start == 0 || fromEnd > size ? 0 : size - fromEnd;
}

/// Leaves the memory of the pattern on the stack.
CLuaPattern CheckPattern(lua_State* state, std::string_view text) {
    void* const memory = lua_newuserdatauv(state, (text.size() + 1) * sizeof(CLuaPatternItem), 0);
    const auto pattern = CLuaPattern::Compile(text, static_cast<CLuaPatternItem*>(memory));
    if (pattern.error) luaL_error(state, "%s", pattern.error);
    CLuaWatch::Of(state).Spend(text.size());
    return pattern;
}

/// Takes a leading "^" off.
bool TakeAnchor(std::string_view& pattern) {
    const bool isAnchored = pattern.starts_with('^');
    if (isAnchored) pattern.remove_prefix(1);
    return isAnchored;
}

void PushCapture(lua_State* state, const CLuaMatcher& matcher, std::size_t index) {
    const auto& capture = matcher.Capture(index);
    if (!capture.end) {
        lua_pushinteger(state, capture.begin - matcher.Begin() + 1);
    } else {
        lua_pushlstring(state, capture.begin, static_cast<std::size_t>(capture.end - capture.begin));
    }
}

/// Pushes all captures, or the whole match when the pattern has none and `begin` is given; returns how many.
int PushCaptures(lua_State* state, const CLuaMatcher& matcher, const char* begin, const char* end) {
    const std::size_t count = matcher.Pattern().captures;
    luaL_checkstack(state, static_cast<int>(count) + 1, "too many captures");
    for (std::size_t index = 0; index != count; ++index) PushCapture(state, matcher, index);
    if (count != 0 || !begin) return static_cast<int>(count);
    lua_pushlstring(state, begin, static_cast<std::size_t>(end - begin));
    return 1;
}

int PushPlace(lua_State* state, std::size_t offset, std::size_t size) {
    lua_pushinteger(state, static_cast<lua_Integer>(offset) + 1);
    lua_pushinteger(state, static_cast<lua_Integer>(offset) + static_cast<lua_Integer>(size));
    return 2;
}

int FindPlain(lua_State* state, std::string_view subject, std::string_view sought, std::size_t start) {
    CLuaWatch::Of(state).Spend(subject.size() - start);
    const char* const begin = subject.data() + start;
    // Takes time that grows with the sum of both lengths, not with their product.
    const void* const found =
        sought.empty() ? begin : ::memmem(begin, subject.size() - start, sought.data(), sought.size());
    if (found) {
        return PushPlace(state, static_cast<std::size_t>(static_cast<const char*>(found) - subject.data()),
                         sought.size());
    }
    luaL_pushfail(state);
    return 1;
}

enum class Wanted { Place, Captures };

int Search(lua_State* state, Wanted wanted) {
    const auto subject = CheckText(state, 1);
    auto text = CheckText(state, 2);
    const std::size_t start = CheckStart(state, 3, subject.size());
    if (start > subject.size()) {
        luaL_pushfail(state);
        return 1;
    }
    constexpr std::string_view kSpecial = "^$*+?.([%-";
    const bool isPlain = lua_toboolean(state, 4) || text.find_first_of(kSpecial) == text.npos;
    if (wanted == Wanted::Place && isPlain) return FindPlain(state, subject, text, start);
    const bool isAnchored = TakeAnchor(text);
    CLuaMatcher matcher(CheckPattern(state, text), subject, CLuaWatch::Of(state));
    for (const char* at = matcher.Begin() + start; at <= matcher.End(); ++at) {
        if (const char* const end = matcher.Match(at)) {
            if (wanted == Wanted::Captures) return PushCaptures(state, matcher, at, end);
            PushPlace(state, static_cast<std::size_t>(at - matcher.Begin()),
                      static_cast<std::size_t>(end - at));
            return 2 + PushCaptures(state, matcher, nullptr, nullptr);
        }
        if (isAnchored) break;
    }
    luaL_pushfail(state);
    return 1;
}

int Find(lua_State* state) {
    return Search(state, Wanted::Place);
}

int Match(lua_State* state) {
    return Search(state, Wanted::Captures);
}

/// Where a gmatch has come to. Lives in Lua's memory, with the texts and the pattern as upvalues beside it.
struct CIteration {
    CLuaMatcher matcher;
    const char* next;
    const char* lastEnd = nullptr;
};

int NextMatch(lua_State* state) {
    auto& iteration = *static_cast<CIteration*>(lua_touserdata(state, lua_upvalueindex(1)));
    for (; iteration.next <= iteration.matcher.End(); ++iteration.next) {
        const char* const begin = iteration.next;
        const char* const end = iteration.matcher.Match(begin);
        if (!end || end == iteration.lastEnd) continue;
        iteration.next = iteration.lastEnd = end;
        return PushCaptures(state, iteration.matcher, begin, end);
    }
    return 0;
}

int EachMatch(lua_State* state) {
    const auto subject = CheckText(state, 1);
    const auto text = CheckText(state, 2);
    const std::size_t start = CheckStart(state, 3, subject.size());
    lua_settop(state, 2);
    const auto pattern = CheckPattern(state, text);
    void* const memory = lua_newuserdatauv(state, sizeof(CIteration), 0);
    new (memory) CIteration{CLuaMatcher(pattern, subject, CLuaWatch::Of(state)),
                            subject.data() + std::min(start, subject.size() + 1)};
    lua_insert(state, 1);
    lua_pushcclosure(state, NextMatch, 4);
    return 1;
}

/// Adds a replacement text, with the captures that its "%1" name.
void AddReplacement(lua_State* state, luaL_Buffer& buffer, const CLuaMatcher& matcher, const char* begin,
                    const char* end) {
    std::size_t size = 0;
    const char* const text = lua_tolstring(state, 3, &size);
    CLuaWatch::Of(state).Spend(size);
    for (const char* at = text; at != text + size; ++at) {
        if (*at != '%') {
            luaL_addchar(&buffer, *at);
            continue;
        }
        const char escaped = ++at == text + size ? '\0' : *at;
        const std::size_t captures = matcher.Pattern().captures;
        if (escaped == '%') {
            luaL_addchar(&buffer, '%');
        } else if (escaped == '0' || (escaped == '1' && captures == 0)) {
            luaL_addlstring(&buffer, begin, static_cast<std::size_t>(end - begin));
        } else if (escaped >= '1' && escaped <= '9') {
            const auto index = static_cast<std::size_t>(escaped - '1');
            if (index >= captures)
                luaL_error(state, "invalid capture index %%%d in replacement string", escaped - '0');
            PushCapture(state, matcher, index);
            luaL_addvalue(&buffer);
        } else {
            luaL_error(state, "invalid use of '%%' in replacement string");
        }
    }
}

/// Adds what a table or a function has for a match; the match itself when that is nothing.
void AddLookup(lua_State* state, luaL_Buffer& buffer, const CLuaMatcher& matcher, const char* begin,
               const char* end) {
    if (lua_istable(state, 3)) {
        if (matcher.Pattern().captures == 0) {
            lua_pushlstring(state, begin, static_cast<std::size_t>(end - begin));
        } else {
            PushCapture(state, matcher, 0);
        }
        lua_gettable(state, 3);
    } else {
        lua_pushvalue(state, 3);
        lua_call(state, PushCaptures(state, matcher, begin, end), 1);
    }
    if (!lua_toboolean(state, -1)) {
        lua_pop(state, 1);
        luaL_addlstring(&buffer, begin, static_cast<std::size_t>(end - begin));
    } else if (lua_isstring(state, -1)) {
        luaL_addvalue(&buffer);
    } else {
        luaL_error(state, "invalid replacement value (a %s)", luaL_typename(state, -1));
    }
}

/// string.gsub(text, pattern, replacement [, most])
int Substitute(lua_State* state) {
    const auto subject = CheckText(state, 1);
    auto text = CheckText(state, 2);
    const int type = lua_type(state, 3);
    const bool isText = type == LUA_TNUMBER || type == LUA_TSTRING;
    luaL_argexpected(state, isText || type == LUA_TTABLE || type == LUA_TFUNCTION, 3,
                     "string/function/table");
    const lua_Integer most = luaL_optinteger(state, 4, static_cast<lua_Integer>(subject.size()) + 1);
    const bool isAnchored = TakeAnchor(text);
    CLuaMatcher matcher(CheckPattern(state, text), subject, CLuaWatch::Of(state));
    luaL_Buffer buffer;
    luaL_buffinit(state, &buffer);
    lua_Integer count = 0;
    const char* at = matcher.Begin();
    const char* lastEnd = nullptr;
    while (count < most) {
        const char* const end = matcher.Match(at);
        if (end && end != lastEnd) {
            ++count;
            isText ? AddReplacement(state, buffer, matcher, at, end)
                   : AddLookup(state, buffer, matcher, at, end);
            at = lastEnd = end;
        } else if (at != matcher.End()) {
            luaL_addchar(&buffer, *at++);
        } else {
            break;
        }
        if (isAnchored) break;
    }
    luaL_addlstring(&buffer, at, static_cast<std::size_t>(matcher.End() - at));
    luaL_pushresult(&buffer);
    lua_pushinteger(state, count);
    return 2;
}

/// Calls Lua's own function, the upvalue, with all arguments.
int CallOriginal(lua_State* state) {
    lua_pushvalue(state, lua_upvalueindex(1));
    lua_insert(state, 1);
    lua_call(state, lua_gettop(state) - 1, LUA_MULTRET);
    return lua_gettop(state);
}

/// string.rep, which counts up to any number when there is nothing to repeat.
int Repeat(lua_State* state) {
    std::size_t separatorSize = 0;
    luaL_optlstring(state, 3, "", &separatorSize);
    if (!CheckText(state, 1).empty() || separatorSize != 0) return CallOriginal(state);
    luaL_checkinteger(state, 2);
    lua_pushliteral(state, "");
    return 1;
}

/// Whether a format has "%p", which writes an address.
bool HasAddress(std::string_view format) {
    constexpr std::string_view kBetween = "-+ #0123456789.";
    for (std::size_t at = format.find('%'); at != format.npos; at = format.find('%', at)) {
        at = format.find_first_not_of(kBetween, at + 1);
        if (at == format.npos) return false;
        if (format[at++] == 'p') return true;
    }
    return false;
}

int Format(lua_State* state) {
    luaL_argcheck(state, !HasAddress(CheckText(state, 1)), 1, "'%p' is not available");
    const int count = lua_gettop(state);
    for (int index = 2; index <= count; ++index) {
        const int type = lua_type(state, index);
        if (type == LUA_TNIL || type == LUA_TBOOLEAN || type == LUA_TNUMBER || type == LUA_TSTRING) continue;
        PushLuaText(state, index);
        lua_replace(state, index);
    }
    return CallOriginal(state);
}

/// What getmetatable tells of texts: no script can change how they are indexed or called.
void ProtectMetatable(lua_State* state) {
    lua_pushliteral(state, "");
    lua_getmetatable(state, -1);
    lua_newtable(state);
    lua_pushvalue(state, -4);
    lua_setfield(state, -2, "__index");
    lua_setfield(state, -2, "__metatable");
    lua_pop(state, 2);
}

void Wrap(lua_State* state, const char* name, lua_CFunction wrapper) {
    lua_getfield(state, -1, name);
    lua_pushcclosure(state, wrapper, 1);
    lua_setfield(state, -2, name);
}

}  // namespace

void OpenLuaStrings(lua_State* state) {
    luaL_requiref(state, LUA_STRLIBNAME, luaopen_string, 1);
    static constexpr luaL_Reg kReplaced[] = {
        {"find", Find}, {"match", Match}, {"gmatch", EachMatch}, {"gsub", Substitute}, {nullptr, nullptr}};
    luaL_setfuncs(state, kReplaced, 0);
    Wrap(state, "rep", Repeat);
    Wrap(state, "format", Format);
    lua_pushnil(state);
    lua_setfield(state, -2, "dump");
    ProtectMetatable(state);
    lua_pop(state, 1);
}

}  // namespace quorbel
