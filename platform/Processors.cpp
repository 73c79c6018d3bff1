#include "platform/Processors.h"

#include <sched.h>

namespace quorbel {

std::size_t UsableProcessors() noexcept {
    cpu_set_t set;
    if (::sched_getaffinity(0, sizeof set, &set) != 0) return 1;
    const int count = CPU_COUNT(&set);
    return count < 1 ? 1 : static_cast<std::size_t>(count);
}

}  // namespace quorbel
