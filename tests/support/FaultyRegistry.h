#pragma once

#include <map>
#include <mutex>
#include <vector>

#include "platform/registry/Key.h"

namespace quorbel {

enum class RegistryOperation {
    Open,
    Create,
    Duplicate,
    Subkeys,
    Values,
    Query,
    Set,
    DeleteValue,
    DeleteTree,
    Watch,
    Begin,
    BeginRead,
    Commit
};

/// Which operations of a CFaultyRegistry are to fail. Safe to use from any thread.
class CRegistryFaults {
 public:
    /// Lets the `call`th call from now on (1 is the next) fail, or every call (0), of the operation on the
    /// key at `path` under HKEY_LOCAL_MACHINE (for Open, Create and DeleteTree the path of the key asked for;
    /// case does not count), or on any key when `path` is "*".
    void Fail(RegistryOperation operation, ErrorCode error, int call = 1, std::wstring path = L"*");
    void FailNothing();
    /// How often the operation was called, failing or not.
    int Calls(RegistryOperation operation) const;

    /// The failure that this call is to have, or Success.
    ErrorCode Note(RegistryOperation operation, std::wstring_view path);

 private:
    struct CRule {
        RegistryOperation operation;
        ErrorCode error;
        int call;
        std::wstring path;
        int seen = 0;
    };
    mutable std::mutex m_lock;
    std::vector<CRule> m_rules;                ///< guarded by m_lock
    std::map<RegistryOperation, int> m_calls;  ///< guarded by m_lock
};

/// A registry that passes everything on to another one, save what its faults say.
class CFaultyRegistry final : public IRegistry {
 public:
    explicit CFaultyRegistry(std::shared_ptr<IRegistry> target) : m_target(std::move(target)) {}
    std::unique_ptr<IKey> LocalMachine() override;
    CResult<std::unique_ptr<ITransaction>> Begin() override;
    CResult<std::unique_ptr<ITransaction>> BeginRead() override;

    CRegistryFaults& Faults() noexcept { return *m_faults; }

 private:
    CResult<std::unique_ptr<ITransaction>> Forward(CResult<std::unique_ptr<ITransaction>> transaction);

    const std::shared_ptr<IRegistry> m_target;
    const std::shared_ptr<CRegistryFaults> m_faults = std::make_shared<CRegistryFaults>();
};

}  // namespace quorbel
