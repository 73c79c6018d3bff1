#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>

#include "platform/Text.h"
#include "platform/registry/Key.h"

namespace quorbel {

/// A registry key in memory whose operations fail on demand.
class CFakeKey final : public IKey {
 public:
    struct CNode {
        std::map<std::wstring, std::shared_ptr<CNode>, CLessNoCase> keys;
        std::map<std::wstring, CValue, CLessNoCase> values;
    };
    /// The error that an operation gives, by value name for Query and Set; shared by all keys of the tree.
    struct CFaults {
        ErrorCode create = ErrorCode::Success;
        std::map<std::wstring, ErrorCode> query;
        std::map<std::wstring, ErrorCode> set;
        std::size_t writes = 0;  ///< counts the calls of Set that succeeded
    };

    CFakeKey() : CFakeKey(std::make_shared<CNode>(), std::make_shared<CFaults>()) {}
    CFaults& Faults() { return *m_faults; }

    CResult<std::unique_ptr<IKey>> Open(std::wstring_view path, KeyAccess) const override {
        auto node = Walk(path, false);
        if (!node) return ErrorCode::FileNotFound;
        return std::unique_ptr<IKey>(new CFakeKey(std::move(node), m_faults));
    }
    CResult<std::unique_ptr<IKey>> Create(std::wstring_view path) override {
        if (m_faults->create != ErrorCode::Success) return m_faults->create;
        return std::unique_ptr<IKey>(new CFakeKey(Walk(path, true), m_faults));
    }
    CResult<std::unique_ptr<IKey>> Duplicate() const override {
        return std::unique_ptr<IKey>(new CFakeKey(m_node, m_faults));
    }
    CResult<std::vector<std::wstring>> Subkeys() const override {
        std::vector<std::wstring> names;
        for (const auto& [name, node] : m_node->keys) names.push_back(name);
        return names;
    }
    CResult<std::vector<CNamedValue>> Values() const override {
        std::vector<CNamedValue> values;
        for (const auto& [name, value] : m_node->values) values.push_back({name, value});
        return values;
    }
    CResult<CValue> Query(std::wstring_view name) const override {
        if (const auto fault = m_faults->query.find(std::wstring(name)); fault != m_faults->query.end())
            return fault->second;
        const auto found = m_node->values.find(name);
        if (found == m_node->values.end()) return ErrorCode::FileNotFound;
        return found->second;
    }
    ErrorCode Set(std::wstring_view name, const CValue& value) override {
        if (const auto fault = m_faults->set.find(std::wstring(name)); fault != m_faults->set.end())
            return fault->second;
        m_node->values.insert_or_assign(std::wstring(name), value);
        ++m_faults->writes;
        return ErrorCode::Success;
    }
    ErrorCode DeleteValue(std::wstring_view) override { return ErrorCode::CallNotImplemented; }
    ErrorCode DeleteTree(std::wstring_view) override { return ErrorCode::CallNotImplemented; }
    ErrorCode Watch(WatchScope, WatchFilter, std::shared_ptr<CEvent>) override {
        return ErrorCode::CallNotImplemented;
    }

 private:
    CFakeKey(std::shared_ptr<CNode> node, std::shared_ptr<CFaults> faults)
        : m_node(std::move(node)), m_faults(std::move(faults)) {}

    std::shared_ptr<CNode> Walk(std::wstring_view path, bool create) const {
        std::shared_ptr<CNode> node = m_node;
        while (node && !path.empty()) {
            const std::size_t end = std::min(path.find(L'\\'), path.size());
            const std::wstring name(path.substr(0, end));
            path.remove_prefix(std::min(end + 1, path.size()));
            if (name.empty()) continue;
            if (create && !node->keys.contains(name)) node->keys.emplace(name, std::make_shared<CNode>());
            const auto found = node->keys.find(name);
            node = found == node->keys.end() ? nullptr : found->second;
        }
        return node;
    }

    std::shared_ptr<CNode> m_node;
    std::shared_ptr<CFaults> m_faults;
};

}  // namespace quorbel
