#include "components/search/text/TextExtractor.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "components/search/text/HtmlText.h"
#include "components/search/text/MarkdownText.h"
#include "components/search/text/PlainText.h"
#include "components/search/text/Problems.h"

namespace quorbel {

namespace {

constexpr std::pair<TextFormat, std::string_view> kExtensions[] = {
    {TextFormat::Plain,
     "txt text log csv tsv tab json jsonl ndjson geojson xml xsd yaml yml toml ini cfg conf "
     "properties rst adoc asciidoc org tex bib srt vtt ics vcf diff patch nfo po"},
    {TextFormat::Markdown, "md markdown mdown mkd"},
    {TextFormat::Html, "html htm xhtml xht"},
    {TextFormat::Pdf, "pdf"},
    {TextFormat::OfficeOpenXml, "docx docm dotx dotm xlsx xlsm xltx xltm pptx pptm potx potm ppsx ppsm"},
    {TextFormat::OpenDocument, "odt ott odm ods ots odp otp odg otg"},
};

constexpr std::size_t kLongestExtension = 16;

/// Whether `word` is one of the words, which blanks separate.
bool IsOneOf(std::string_view word, std::string_view words) noexcept {
    while (!words.empty()) {
        const std::size_t end = std::min(words.find(' '), words.size());
        if (words.substr(0, end) == word) return true;
        words.remove_prefix(std::min(end + 1, words.size()));
    }
    return false;
}

CExtractedText Bounded(CExtractedText result) {
    if (result.text.size() > kLargestText) return Problem(kTooMuchText);
    return result;
}

}  // namespace

TextFormat TextFormatOf(std::string_view name) noexcept {
    const std::size_t dot = name.rfind('.');
    if (dot == name.npos || dot == 0 || name.size() - dot - 1 > kLongestExtension) return TextFormat::None;
    std::array<char, kLongestExtension> lower{};
    const std::string_view extension = name.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), lower.begin(),
                   [](char letter) { return letter >= 'A' && letter <= 'Z' ? letter + 32 : letter; });
    for (const auto& [format, extensions] : kExtensions) {
        if (IsOneOf({lower.data(), extension.size()}, extensions)) return format;
    }
    return TextFormat::None;
}

bool NeedsWorker(TextFormat format) noexcept {
    return format == TextFormat::Pdf || format == TextFormat::OfficeOpenXml ||
           format == TextFormat::OpenDocument;
}

CExtractedText ExtractText(TextFormat format, std::string_view bytes) {
    assert(!NeedsWorker(format));
    if (format == TextFormat::None) return {};
    if (bytes.size() > kLargestTextFile) return Problem(kTooLarge);
    if (format == TextFormat::Html) return Bounded(ReadHtml(bytes));
    std::optional<std::string> text = ReadPlainText(bytes);
    if (!text) return Problem(kNoText);
    if (format == TextFormat::Markdown) return Bounded(ReadMarkdown(*text));
    return Bounded({.text = std::move(*text), .title = {}, .author = {}, .problem = {}});
}

}  // namespace quorbel
