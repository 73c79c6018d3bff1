#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "LibService/TraceLogger.h"
#include "LibService/trace/TraceArguments.h"
#include "platform/messages/MessageModule.h"

namespace quorbel {

/// An insert of an identifier's text: %[flag][width][.precision][I64|l|h|L]LETTER NUMBER.
struct CTraceInsert {
    enum class Kind { Signed, Unsigned, Floating, String };
    enum class Size { Plain, Short, Long, Long64, Unknown };

    Kind kind = Kind::String;
    Size size = Size::Plain;
    char flag = '\0';
    std::optional<int> width;      ///< at most kWidest
    std::optional<int> precision;  ///< at most kWidest
    char conversion = 's';

    static constexpr int kWidest = 64;
};

/// The text of one trace identifier, its inserts read. Immutable.
class CTraceText {
 public:
    explicit CTraceText(std::wstring text);

    /// The inserts in the order of their numbers, from 1 on while the numbers are consecutive.
    const std::vector<CTraceInsert>& Inserts() const noexcept { return m_inserts; }

    /// Writes the arguments with the types of the inserts; those beyond the inserts are dropped. An integer
    /// is cut to the insert's size, a number for a text becomes decimal digits, a text for a number 0.
    void Encode(std::initializer_list<TraceArgument> arguments, CTraceArgumentWriter& writer) const;

    /// The text with the values in place of the inserts, on one line unless a value holds line ends.
    std::wstring Render(const std::vector<TraceValue>& values) const;

 private:
    /// A part of the text as it stands, and the insert that follows it.
    struct CPart {
        std::wstring text;
        std::size_t insert = 0;  ///< its number; 0 for none
        CTraceInsert format;
    };
    std::vector<CPart> m_parts;
    std::vector<CTraceInsert> m_inserts;
};

/// The texts of a trace message module, their inserts read. An identifier without a text has the empty one,
/// and so no inserts. Immutable.
class CTraceTexts {
 public:
    CTraceTexts() = default;
    explicit CTraceTexts(const CMessageModule& module);
    const CTraceText& Find(std::uint32_t id) const noexcept;
    /// A record as a line for people: its text with the arguments, or without a text its identifier and them.
    std::wstring Line(std::uint32_t id, std::span<const std::uint8_t> arguments) const;

 private:
    std::unordered_map<std::uint32_t, CTraceText> m_texts;
    const CTraceText m_none{std::wstring()};
};

}  // namespace quorbel
