#include <cerrno>
#include <map>
#include <mutex>
#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include "platform/Lock.h"
#include "platform/eventlog/EventSink.h"

namespace quorbel {

namespace {

std::string LookUpUser(uid_t user) {
    constexpr std::size_t kLargest = 1 << 20;
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(1024);
    while (::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) == ERANGE &&
           buffer.size() < kLargest)
        buffer.resize(buffer.size() * 2);
    return found ? std::string(found->pw_name) : std::to_string(user);
}

}  // namespace

bool StartedByServiceManager() {
    const char* process = ::getenv("SYSTEMD_EXEC_PID");
    return process && std::to_string(::getpid()) == process;
}

std::string CurrentUserName() {
    static CMutex lock(LockRank::Innermost);
    static std::map<uid_t, std::string> names;  // guarded by lock
    const uid_t user = ::geteuid();
    {
        const std::lock_guard guard(lock);
        if (const auto known = names.find(user); known != names.end()) return known->second;
    }
    // Looked up without the lock: the directory that knows the users may be far away.
    std::string name = LookUpUser(user);
    const std::lock_guard guard(lock);
    return names.emplace(user, std::move(name)).first->second;
}

}  // namespace quorbel
