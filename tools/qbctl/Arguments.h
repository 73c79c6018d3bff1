#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/Text.h"

namespace quorbel {

enum class OptionKind {
    Flag,
    Value,  ///< the next word is its value, whatever that looks like
    Values  ///< the same, and it may be given several times
};

struct COption {
    std::wstring_view name;  ///< "/v" or "--port"; compared without regard to case
    OptionKind kind;
};

/// The words of a command, sorted into options and operands. A word that begins with "--" must be one of the
/// options; one that begins with "/" and is none is an operand, as it may be a path.
class CArguments {
 public:
    /// The arguments, or what is wrong with them.
    static std::variant<CArguments, std::wstring> Parse(std::span<const std::wstring> words,
                                                        std::span<const COption> options);

    bool Has(std::wstring_view option) const { return m_options.find(option) != m_options.end(); }
    /// The option's value; null when it was not given.
    const std::wstring* Value(std::wstring_view option) const;
    /// The option's values, in the order given.
    std::vector<std::wstring> Values(std::wstring_view option) const;
    const std::vector<std::wstring>& Operands() const noexcept { return m_operands; }

 private:
    std::map<std::wstring, std::vector<std::wstring>, CLessNoCase> m_options;  ///< a flag has none
    std::vector<std::wstring> m_operands;
};

}  // namespace quorbel
