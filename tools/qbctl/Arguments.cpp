#include "tools/qbctl/Arguments.h"

#include <algorithm>

namespace quorbel {

std::variant<CArguments, std::wstring> CArguments::Parse(std::span<const std::wstring> words,
                                                         std::span<const COption> options) {
    CArguments arguments;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::wstring& word = words[i];
        const auto option = std::find_if(options.begin(), options.end(),
                                         [&](const COption& known) { return EqualNoCase(known.name, word); });
        if (option == options.end()) {
            if (word.starts_with(L"--")) return L"Unknown option: " + word;
            arguments.m_operands.push_back(word);
            continue;
        }
        if (arguments.Has(word)) return L"Option given twice: " + word;
        if (option->kind == OptionKind::Value && i + 1 == words.size())
            return L"Option without value: " + word;
        arguments.m_options[word] = option->kind == OptionKind::Value ? words[++i] : std::wstring();
    }
    return arguments;
}

const std::wstring* CArguments::Value(std::wstring_view option) const {
    const auto found = m_options.find(option);
    return found == m_options.end() ? nullptr : &found->second;
}

}  // namespace quorbel
