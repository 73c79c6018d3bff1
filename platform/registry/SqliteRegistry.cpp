#include "platform/registry/SqliteRegistry.h"

#include "platform/registry/RegistryStore.h"
#include "platform/registry/SqliteKey.h"

namespace quorbel {

namespace {

class CSqliteTransaction final : public ITransaction {
 public:
    ~CSqliteTransaction() override {
        if (m_store) m_store->AbandonTransaction();
    }
    ErrorCode Begin(std::shared_ptr<CRegistryStore> store, KeyAccess access) {
        const ErrorCode error = store->BeginTransaction(access);
        if (error == ErrorCode::Success) m_store = std::move(store);
        return error;
    }
    ErrorCode Commit() override {
        if (!m_store) return ErrorCode::InvalidFunction;
        return std::exchange(m_store, nullptr)->CommitTransaction();
    }

 private:
    std::shared_ptr<CRegistryStore> m_store;  ///< none before the beginning and once committed
};

class CSqliteRegistry final : public IRegistry {
 public:
    explicit CSqliteRegistry(std::shared_ptr<CRegistryStore> store) noexcept : m_store(std::move(store)) {}

    std::unique_ptr<IKey> LocalMachine() override {
        return std::make_unique<CSqliteKey>(m_store, std::vector<KeyId>{kLocalMachineId},
                                            KeyAccess::ReadWrite);
    }
    CResult<std::unique_ptr<ITransaction>> Begin() override { return Begin(KeyAccess::ReadWrite); }
    CResult<std::unique_ptr<ITransaction>> BeginRead() override { return Begin(KeyAccess::Read); }

 private:
    CResult<std::unique_ptr<ITransaction>> Begin(KeyAccess access) {
        auto transaction = std::make_unique<CSqliteTransaction>();
        const ErrorCode error = transaction->Begin(m_store, access);
        if (error != ErrorCode::Success) return error;
        return std::unique_ptr<ITransaction>(std::move(transaction));
    }

    const std::shared_ptr<CRegistryStore> m_store;
};

}  // namespace

CResult<std::shared_ptr<IRegistry>> OpenSqliteRegistry(const std::filesystem::path& folder,
                                                       const CRegistryOptions& options) {
    CResult<std::shared_ptr<CRegistryStore>> store = CRegistryStore::Open(folder, options);
    if (!store.IsOk()) return store.Error();
    return std::shared_ptr<IRegistry>(std::make_shared<CSqliteRegistry>(std::move(store).Value()));
}

}  // namespace quorbel
