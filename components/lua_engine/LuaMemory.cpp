#include "components/lua_engine/LuaMemory.h"

#include <cstdlib>

namespace quorbel {

CLuaMemory::~CLuaMemory() {
    while (m_blocks.next != &m_blocks) Free(m_blocks.next);
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
        resized->previous = &m_blocks;
        resized->next = m_blocks.next;
    }
    resized->previous->next = resized;
    resized->next->previous = resized;
    m_left = m_left + held - size - sizeof(CHeader);
    return resized + 1;
}

}  // namespace quorbel
