#include "platform/Lock.h"

#include <algorithm>
#include <array>
#include <cassert>

namespace quorbel {

#ifndef NDEBUG
namespace detail {

namespace {

/// The ranks that a thread holds, in the order taken. Without a destructor, as locks are also taken by what
/// is destroyed after a thread's own objects.
struct CHeldRanks {
    std::array<LockRank, 32> ranks;
    std::size_t count;
};
thread_local constinit CHeldRanks t_held{};

}  // namespace

void NoteAcquire(LockRank rank) noexcept {
    for (std::size_t i = 0; i < t_held.count; ++i) {
        assert(t_held.ranks[i] < rank && "locks taken out of order");
    }
    assert(t_held.count < t_held.ranks.size());
    t_held.ranks[t_held.count++] = rank;
}

void NoteRelease(LockRank rank) noexcept {
    const auto end = t_held.ranks.begin() + static_cast<std::ptrdiff_t>(t_held.count);
    const auto held = std::find(t_held.ranks.begin(), end, rank);
    assert(held != end && "a lock released that was not held");
    std::copy(held + 1, end, held);
    --t_held.count;
}

}  // namespace detail
#endif

CReadWriteLock::CReadWriteLock(LockRank rank) noexcept : m_rank(rank) {
    pthread_rwlockattr_t attributes;
    ::pthread_rwlockattr_init(&attributes);
    ::pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
    ::pthread_rwlock_init(&m_lock, &attributes);
    ::pthread_rwlockattr_destroy(&attributes);
}

}  // namespace quorbel
