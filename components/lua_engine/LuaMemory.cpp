#include "components/lua_engine/LuaMemory.h"

#include <cstdlib>
#include <initializer_list>
#include <lua.hpp>

namespace quorbel {

CLuaMemory::~CLuaMemory() {
    for (auto* const ring : {&m_blocks, &m_states}) {
        while (ring->next != ring) Free(ring->next);
    }
}

lua_State* CLuaMemory::State(CHeader* header) noexcept {
    // A state's block begins with its extra space; see lua_getextraspace.
    return reinterpret_cast<lua_State*>(reinterpret_cast<char*>(header + 1) + LUA_EXTRASPACE);
}

void CLuaMemory::Free(CHeader* header) noexcept {
    header->previous->next = header->next;
    header->next->previous = header->previous;
    std::free(header);
}

void* CLuaMemory::Resize(void* block, std::size_t oldSize, std::size_t size) noexcept {
    auto* header = block ? static_cast<CHeader*>(block) - 1 : nullptr;
    const std::size_t held = block ? sizeof(CHeader) + oldSize : 0;
    if (size == 0) {
        if (header) Free(header);
        m_left += held;
        return nullptr;
    }
    if (size > m_left + held || m_left + held - size < sizeof(CHeader)) return nullptr;
    auto* const resized = static_cast<CHeader*>(std::realloc(header, sizeof(CHeader) + size));
    if (!resized) return nullptr;
    if (!header) {
        auto& ring = oldSize == LUA_TTHREAD ? m_states : m_blocks;
        resized->previous = &ring;
        resized->next = ring.next;
    }
    resized->previous->next = resized;
    resized->next->previous = resized;
    m_left = m_left + held - size - sizeof(CHeader);
    return resized + 1;
}

}  // namespace quorbel
