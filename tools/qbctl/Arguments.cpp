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
        if (option->kind != OptionKind::Values && arguments.Has(word)) return L"Option given twice: " + word;
        std::vector<std::wstring>& values = arguments.m_options[word];
        if (option->kind == OptionKind::Flag) continue;
        if (i + 1 == words.size()) return L"Option without value: " + word;
        values.push_back(words[++i]);
    }
    return arguments;
}

const std::wstring* CArguments::Value(std::wstring_view option) const {
    const auto found = m_options.find(option);
    return found == m_options.end() || found->second.empty() ? nullptr : &found->second.front();
}

std::vector<std::wstring> CArguments::Values(std::wstring_view option) const {
    const auto found = m_options.find(option);
    return found == m_options.end() ? std::vector<std::wstring>() : found->second;
}

}  // namespace quorbel
