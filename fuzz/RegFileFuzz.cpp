#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/registry/Names.h"
#include "platform/registry/RegFileParser.h"

using namespace quorbel;

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

/// What the parser lets through, the registry must be able to take.
void Check(const std::vector<CRegFileChange>& changes) {
    bool below = false;
    for (const CRegFileChange& change : changes) {
        const bool ofKey =
            change.kind == CRegFileChange::Kind::CreateKey || change.kind == CRegFileChange::Kind::DeleteKey;
        if (ofKey) {
            below = change.kind == CRegFileChange::Kind::CreateKey;
            const auto names = SplitKeyPath(change.name);
            Require(names.IsOk() && names.Value().size() <= kDeepestKey);
        } else {
            Require(below && CheckValueName(change.name) == ErrorCode::Success);
            Require(change.value.data.size() <= kLargestData);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto parsed = ParseRegFile(text);
    if (const auto* error = std::get_if<CRegFileError>(&parsed)) {
        Require(error->line > 0 && !error->reason.empty());
    } else {
        Check(std::get<std::vector<CRegFileChange>>(parsed));
    }
    return 0;
}
