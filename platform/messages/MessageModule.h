#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/Error.h"

namespace quorbel {

/// A message module: texts by 32-bit identifier, read once from a text catalogue in message-compiler syntax
/// (UTF-8; MessageId, Severity, Facility, SymbolicName, Language, text, a line with a lone full stop). Immutable.
class CMessageModule {
 public:
    /// Errors: FileNotFound and its like, BadFileType for text that is no catalogue, FileTooLarge above 1 MiB.
    static CResult<std::shared_ptr<const CMessageModule>> Load(const std::filesystem::path& file);
    /// The same from a text in memory; the error is BadFileType.
    static CResult<std::shared_ptr<const CMessageModule>> Parse(std::string_view catalogue);

    /// The text as the catalogue has it, its inserts not replaced, its last line end kept; none if unknown.
    std::optional<std::wstring> Find(std::uint32_t id) const;
    /// The text with %1 to %99 replaced (a %n!format! counts as %n), %% %n %t %b %. %! and %0 resolved; an
    /// insert beyond those given is empty.
    std::optional<std::wstring> Format(std::uint32_t id, std::span<const std::wstring> inserts) const;
    /// The highest insertion number in the text; 0 when there is none or no text.
    std::size_t InsertCount(std::uint32_t id) const;

    std::vector<std::uint32_t> Identifiers() const;

 private:
    std::unordered_map<std::uint32_t, std::wstring> m_texts;
};

}  // namespace quorbel
