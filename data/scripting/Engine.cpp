#include "data/scripting/Engine.h"

#include <mutex>
#include <shared_mutex>

#include "platform/Lock.h"

namespace quorbel::LibScripting {

namespace {

class CEngineCache {
 public:
    std::shared_ptr<Engine> Find(std::wstring_view path) {
        const std::shared_lock lock(m_lock);
        return FindLocked(path);
    }
    CResult<std::shared_ptr<Engine>> FindOrLoad(std::wstring_view path) {
        const std::lock_guard lock(m_lock);
        if (auto engine = FindLocked(path)) return engine;
        const auto library = CLibrary::Load(path);
        if (!library.IsOk()) return library.Error();
        return m_engines.emplace(path, std::make_shared<Engine>(library.Value())).first->second;
    }

 private:
    std::shared_ptr<Engine> FindLocked(std::wstring_view path) const {
        const auto found = m_engines.find(path);
        return found == m_engines.end() ? nullptr : found->second;
    }

    CReadWriteLock m_lock{LockRank::ScriptEngines};
    std::map<std::wstring, std::shared_ptr<Engine>, std::less<>> m_engines;
};

}  // namespace

void Engine::Execute(CVariant& result, CVariant& resource, const std::wstring& name, NamedArguments& named,
                     PositionalArguments& positional) {
    const auto entry = m_library.Find(kEntryName);
    if (!entry.IsOk()) {
        result = CVariant::FromError(HResultFromWin32(ToNumber(entry.Error())));
        return;
    }
    const auto execute = reinterpret_cast<decltype(&fnExecute)>(entry.Value());
    execute(&result, this, &resource, name.c_str(), &named, &positional);
}

CResult<std::shared_ptr<Engine>> FindEngine(std::wstring_view path) {
    static CEngineCache cache;
    if (auto engine = cache.Find(path)) return engine;
    return cache.FindOrLoad(path);
}

}  // namespace quorbel::LibScripting
