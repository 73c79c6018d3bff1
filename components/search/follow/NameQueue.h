#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "components/search/follow/FolderTree.h"

namespace quorbel {

/// Names in folders that are to be looked at, each once.
class CNameQueue {
 public:
    void Add(CFolderNode& folder, std::string name) { m_names[&folder].insert(std::move(name)); }
    void Forget(CFolderNode& folder) { m_names.erase(&folder); }
    void Clear() { m_names.clear(); }
    bool IsEmpty() const noexcept { return m_names.empty(); }

    std::optional<std::pair<CFolderNode*, std::string>> Take() {
        if (m_names.empty()) return std::nullopt;
        const auto first = m_names.begin();
        std::pair<CFolderNode*, std::string> taken{
            first->first, std::move(first->second.extract(first->second.begin()).value())};
        if (first->second.empty()) m_names.erase(first);
        return taken;
    }

 private:
    std::map<CFolderNode*, std::set<std::string>> m_names;
};

}  // namespace quorbel
