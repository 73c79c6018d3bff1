#include "platform/Text.h"
#include "platform/registry/RegFileParser.h"

namespace quorbel {

namespace {

ErrorCode MissingIsFine(ErrorCode error) {
    return error == ErrorCode::FileNotFound ? ErrorCode::Success : error;
}

ErrorCode Apply(const CRegFileChange& change, IKey& root, std::unique_ptr<IKey>& key) {
    switch (change.kind) {
        case CRegFileChange::Kind::CreateKey: {
            CResult<std::unique_ptr<IKey>> created = root.Create(change.name);
            if (!created.IsOk()) return created.Error();
            key = std::move(created).Value();
            return ErrorCode::Success;
        }
        case CRegFileChange::Kind::DeleteKey: return MissingIsFine(root.DeleteTree(change.name));
        case CRegFileChange::Kind::SetValue: return key->Set(change.name, change.value);
        case CRegFileChange::Kind::DeleteValue: return MissingIsFine(key->DeleteValue(change.name));
    }
    return ErrorCode::InvalidFunction;
}

ErrorCode ApplyAll(IRegistry& registry, const std::vector<CRegFileChange>& changes) {
    CResult<std::unique_ptr<ITransaction>> transaction = registry.Begin();
    if (!transaction.IsOk()) return transaction.Error();
    const std::unique_ptr<IKey> root = registry.LocalMachine();
    std::unique_ptr<IKey> key;
    for (const CRegFileChange& change : changes) {
        const ErrorCode error = Apply(change, *root, key);
        if (error != ErrorCode::Success) return error;
    }
    return transaction.Value()->Commit();
}

}  // namespace

std::optional<CRegFileError> ImportRegFile(IRegistry& registry, std::string_view bytes) {
    const auto parsed = ParseRegFile(bytes);
    if (const auto* refused = std::get_if<CRegFileError>(&parsed)) return *refused;
    const ErrorCode error = ApplyAll(registry, std::get<std::vector<CRegFileChange>>(parsed));
    if (error == ErrorCode::Success) return std::nullopt;
    return CRegFileError{error, 0, SystemMessage(ToNumber(error)).value_or(L"The registry failed.")};
}

}  // namespace quorbel
