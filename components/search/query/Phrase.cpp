#include "components/search/query/Phrase.h"

#include "components/search/index/WordBreaker.h"
#include "platform/Text.h"

namespace quorbel {

CPhrase PhraseOf(std::wstring_view text, bool isPrefix) {
    CPhrase phrase;
    BreakWords(ToUtf8(text), [&](std::string_view folded, std::size_t, std::size_t) {
        phrase.expression += phrase.expression.empty() ? '"' : ' ';
        for (const char character : folded) {
            phrase.expression += character;
            if (character == '"') phrase.expression += '"';
        }
        ++phrase.words;
        return true;
    });
    if (phrase.words != 0) phrase.expression += isPrefix ? "\" *" : "\"";
    return phrase;
}

bool TakePrefixMark(std::wstring_view& text) noexcept {
    const std::size_t last = text.find_last_not_of(L"* \t");
    const std::size_t length = last == std::wstring_view::npos ? 0 : last + 1;
    const bool hasMark = text.substr(length).find(L'*') != std::wstring_view::npos;
    text = text.substr(0, length);
    return hasMark;
}

}  // namespace quorbel
