#include "platform/Lock.h"

#include <cassert>
#include <vector>

namespace quorbel {

#ifndef NDEBUG
namespace detail {

namespace {
thread_local std::vector<LockRank> t_held;
}

void NoteAcquire(LockRank rank) noexcept {
    for (LockRank held : t_held) assert(held < rank && "locks taken out of order");
    t_held.push_back(rank);
}

void NoteRelease(LockRank rank) noexcept {
    for (auto held = t_held.rbegin(); held != t_held.rend(); ++held) {
        if (*held != rank) continue;
        t_held.erase(std::next(held).base());
        return;
    }
    assert(false && "a lock released that was not held");
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
