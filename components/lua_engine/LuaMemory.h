#pragma once

#include <cstddef>

struct lua_State;

namespace quorbel {

/// The memory of one Lua state: at most so many bytes, the blocks' own headers included, all of it given back
/// at the end, in whatever state Lua was left. One thread.
class CLuaMemory {
 public:
    explicit CLuaMemory(std::size_t most) noexcept : m_left(most) {}
    ~CLuaMemory();
    CLuaMemory(const CLuaMemory&) = delete;
    CLuaMemory& operator=(const CLuaMemory&) = delete;

    /// Allocates (`block` null), resizes or frees (`size` 0) as lua_Alloc does. Null when memory is short;
    /// the block is then as it was. `oldSize` is the kind of what is allocated when there is no block yet.
    void* Resize(void* block, std::size_t oldSize, std::size_t size) noexcept;

    /// Calls `act` with each state that lives: the main one and the coroutines. It may not allocate.
    template <class Act>
    void ForEachState(Act act) const {
        for (auto* header = m_states.next; header != &m_states; header = header->next) act(State(header));
    }

 private:
    /// Stands before each block, and keeps it aligned.
    struct alignas(std::max_align_t) CHeader {
        CHeader* previous;
        CHeader* next;
    };
    void Free(CHeader* header) noexcept;
    static lua_State* State(CHeader* header) noexcept;

    std::size_t m_left;
    CHeader m_blocks{&m_blocks, &m_blocks};
    CHeader m_states{&m_states, &m_states};
};

}  // namespace quorbel
