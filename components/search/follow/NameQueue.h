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
    void Add(CFolderNode& folder, std::string name) {
        if (m_names[&folder].insert(std::move(name)).second) ++m_count;
    }
    void Forget(CFolderNode& folder) {
        const auto found = m_names.find(&folder);
        if (found == m_names.end()) return;
        m_count -= found->second.size();
        m_names.erase(found);
    }
    bool IsEmpty() const noexcept { return m_count == 0; }
    std::size_t Count() const noexcept { return m_count; }

    /// Takes over all names of another queue.
    void TakeAll(CNameQueue& other) {
        while (auto name = other.Take()) Add(*name->first, std::move(name->second));
    }

    std::optional<std::pair<CFolderNode*, std::string>> Take() {
        if (m_names.empty()) return std::nullopt;
        const auto first = m_names.begin();
        std::pair<CFolderNode*, std::string> taken{
            first->first, std::move(first->second.extract(first->second.begin()).value())};
        --m_count;
        if (first->second.empty()) m_names.erase(first);
        return taken;
    }

 private:
    std::map<CFolderNode*, std::set<std::string>> m_names;
    std::size_t m_count = 0;
};

}  // namespace quorbel
