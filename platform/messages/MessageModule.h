#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/Error.h"

namespace quorbel {

/// A message module: texts by 32-bit identifier, read once from a text catalogue in message-compiler syntax.
/// Immutable.
///
/// The catalogue is UTF-8, one statement a line, keywords and names without regard to case; blank lines and
/// lines that begin with ";" are skipped. The header may hold MessageIdTypedef=TYPE and the lists
/// SeverityNames, FacilityNames and LanguageNames, each "=(NAME=NUMBER[:SYMBOL] ...)", over several lines if
/// need be. An entry is
///
///     MessageId=NUMBER | +NUMBER | (nothing: one above the last)
///     Severity=NAME        Success, Informational, Warning, Error or a name of the header
///     Facility=NAME        a name of the header
///     SymbolicName=NAME
///     Language=NAME        English or a name of the header
///     lines of text, then a line that is a lone full stop; further Language blocks may follow
///
/// The identifier is severity << 30 | facility << 16 | message number, so a number has at most 16 bits.
/// Severity and facility, where missing, are those of the entry before (at first Success and 0). Only English
/// texts are kept.
class CMessageModule {
 public:
    /// Errors: FileNotFound and its like, BadFileType for text that is no catalogue, FileTooLarge above 1
    /// MiB.
    static CResult<std::shared_ptr<const CMessageModule>> Load(const std::filesystem::path& file);
    /// The same from a text in memory; the error is BadFileType.
    static CResult<std::shared_ptr<const CMessageModule>> Parse(std::string_view catalogue);

    /// The text as the catalogue has it, its inserts not replaced, each line with its end (CR LF); none if
    /// unknown.
    std::optional<std::wstring> Find(std::uint32_t id) const;
    /// The text with %1 to %99 replaced (a %n!format! counts as %n), %% %n %t %b %. %! and %0 resolved; an
    /// insert beyond those given is empty. %0 ends the text, any other % stands for the character after it.
    std::optional<std::wstring> Format(std::uint32_t id, std::span<const std::wstring> inserts) const;
    /// The highest insertion number in the text; 0 when there is none or no text.
    std::size_t InsertCount(std::uint32_t id) const;

    std::vector<std::uint32_t> Identifiers() const;

 private:
    std::unordered_map<std::uint32_t, std::wstring> m_texts;
};

}  // namespace quorbel
