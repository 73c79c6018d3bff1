#include "tests/support/FaultyRegistry.h"

#include <algorithm>

#include "platform/Text.h"

namespace quorbel {

namespace {

std::wstring Join(const std::wstring& path, std::wstring_view below) {
    std::wstring joined = path;
    while (!below.empty()) {
        const std::size_t end = std::min(below.find(L'\\'), below.size());
        if (end != 0) joined.append(joined.empty() ? L"" : L"\\").append(below.substr(0, end));
        below.remove_prefix(std::min(end + 1, below.size()));
    }
    return joined;
}

class CFaultyKey final : public IKey {
 public:
    CFaultyKey(std::unique_ptr<IKey> target, std::shared_ptr<CRegistryFaults> faults, std::wstring path)
        : m_target(std::move(target)), m_faults(std::move(faults)), m_path(std::move(path)) {}

    CResult<std::unique_ptr<IKey>> Open(std::wstring_view path, KeyAccess access) const override {
        const std::wstring full = Join(m_path, path);
        return Unless(RegistryOperation::Open, full,
                      [&] { return Wrap(m_target->Open(path, access), full); });
    }
    CResult<std::unique_ptr<IKey>> Create(std::wstring_view path) override {
        const std::wstring full = Join(m_path, path);
        return Unless(RegistryOperation::Create, full, [&] { return Wrap(m_target->Create(path), full); });
    }
    CResult<std::unique_ptr<IKey>> Duplicate() const override {
        return Unless(RegistryOperation::Duplicate, m_path,
                      [&] { return Wrap(m_target->Duplicate(), m_path); });
    }
    CResult<std::vector<std::wstring>> Subkeys() const override {
        return Unless(RegistryOperation::Subkeys, m_path, [&] { return m_target->Subkeys(); });
    }
    CResult<std::vector<CNamedValue>> Values() const override {
        return Unless(RegistryOperation::Values, m_path, [&] { return m_target->Values(); });
    }
    CResult<CValue> Query(std::wstring_view name) const override {
        return Unless(RegistryOperation::Query, m_path, [&] { return m_target->Query(name); });
    }
    ErrorCode Set(std::wstring_view name, const CValue& value) override {
        return Unless(RegistryOperation::Set, m_path, [&] { return m_target->Set(name, value); });
    }
    ErrorCode DeleteValue(std::wstring_view name) override {
        return Unless(RegistryOperation::DeleteValue, m_path, [&] { return m_target->DeleteValue(name); });
    }
    ErrorCode DeleteTree(std::wstring_view path) override {
        return Unless(RegistryOperation::DeleteTree, Join(m_path, path),
                      [&] { return m_target->DeleteTree(path); });
    }
    ErrorCode Watch(WatchScope scope, WatchFilter filter, std::shared_ptr<CEvent> event) override {
        return Unless(RegistryOperation::Watch, m_path,
                      [&] { return m_target->Watch(scope, filter, std::move(event)); });
    }

 private:
    /// What the target's operation gives, unless this call is to fail.
    template <typename Operation>
    auto Unless(RegistryOperation operation, const std::wstring& path, const Operation& target) const
        -> decltype(target()) {
        const ErrorCode error = m_faults->Note(operation, path);
        if (error != ErrorCode::Success) return error;
        return target();
    }
    CResult<std::unique_ptr<IKey>> Wrap(CResult<std::unique_ptr<IKey>> key, const std::wstring& path) const {
        if (!key.IsOk()) return key;
        return std::unique_ptr<IKey>(std::make_unique<CFaultyKey>(std::move(key).Value(), m_faults, path));
    }

    const std::unique_ptr<IKey> m_target;
    const std::shared_ptr<CRegistryFaults> m_faults;
    const std::wstring m_path;
};

class CFaultyTransaction final : public ITransaction {
 public:
    CFaultyTransaction(std::unique_ptr<ITransaction> target, std::shared_ptr<CRegistryFaults> faults)
        : m_target(std::move(target)), m_faults(std::move(faults)) {}
    ErrorCode Commit() override {
        const ErrorCode error = m_faults->Note(RegistryOperation::Commit, L"");
        return error == ErrorCode::Success ? m_target->Commit() : error;
    }

 private:
    const std::unique_ptr<ITransaction> m_target;
    const std::shared_ptr<CRegistryFaults> m_faults;
};

}  // namespace

void CRegistryFaults::Fail(RegistryOperation operation, ErrorCode error, int call, std::wstring path) {
    const std::lock_guard lock(m_lock);
    m_rules.push_back({operation, error, call, std::move(path)});
}

void CRegistryFaults::FailNothing() {
    const std::lock_guard lock(m_lock);
    m_rules.clear();
}

int CRegistryFaults::Calls(RegistryOperation operation) const {
    const std::lock_guard lock(m_lock);
    const auto found = m_calls.find(operation);
    return found == m_calls.end() ? 0 : found->second;
}

ErrorCode CRegistryFaults::Note(RegistryOperation operation, std::wstring_view path) {
    const std::lock_guard lock(m_lock);
    ++m_calls[operation];
    ErrorCode error = ErrorCode::Success;
    for (CRule& rule : m_rules) {
        if (rule.operation != operation || (rule.path != L"*" && !EqualNoCase(rule.path, path))) continue;
        ++rule.seen;
        if (rule.call == 0 || rule.call == rule.seen) error = rule.error;
    }
    return error;
}

std::unique_ptr<IKey> CFaultyRegistry::LocalMachine() {
    return std::make_unique<CFaultyKey>(m_target->LocalMachine(), m_faults, L"");
}

CResult<std::unique_ptr<ITransaction>> CFaultyRegistry::Begin() {
    const ErrorCode error = m_faults->Note(RegistryOperation::Begin, L"");
    if (error != ErrorCode::Success) return error;
    return Forward(m_target->Begin());
}

CResult<std::unique_ptr<ITransaction>> CFaultyRegistry::BeginRead() {
    const ErrorCode error = m_faults->Note(RegistryOperation::BeginRead, L"");
    if (error != ErrorCode::Success) return error;
    return Forward(m_target->BeginRead());
}

CResult<std::unique_ptr<ITransaction>> CFaultyRegistry::Forward(
    CResult<std::unique_ptr<ITransaction>> transaction) {
    if (!transaction.IsOk()) return transaction;
    return std::unique_ptr<ITransaction>(
        std::make_unique<CFaultyTransaction>(std::move(transaction).Value(), m_faults));
}

}  // namespace quorbel
