#include "components/search/text/HtmlText.h"

#include <algorithm>

#include "components/search/text/HtmlEncoding.h"
#include "components/search/text/HtmlTokenizer.h"
#include "components/search/text/Problems.h"
#include "components/search/text/TextEncoding.h"
#include "components/search/text/TextSink.h"

namespace quorbel {

namespace {

/// What a tag does to the text around it.
enum class Separation { None, Word, Paragraph };

Separation SeparationOf(std::string_view name) noexcept {
    // In order, for the search.
    constexpr std::string_view kParagraphs[] = {
        "address",    "article",  "aside",   "blockquote", "body",     "br",     "caption", "center",
        "dd",         "details",  "dialog",  "dir",        "div",      "dl",     "dt",      "fieldset",
        "figcaption", "figure",   "footer",  "form",       "frameset", "h1",     "h2",      "h3",
        "h4",         "h5",       "h6",      "head",       "header",   "hgroup", "hr",      "html",
        "legend",     "li",       "listing", "main",       "menu",     "nav",    "ol",      "optgroup",
        "option",     "p",        "pre",     "search",     "section",  "select", "summary", "table",
        "tbody",      "textarea", "tfoot",   "thead",      "title",    "tr",     "ul",      "xmp"};
    constexpr std::string_view kWords[] = {"area",  "audio", "button", "canvas", "embed",    "img",
                                           "input", "label", "meter",  "object", "progress", "rp",
                                           "rt",    "svg",   "td",     "th",     "video"};
    static_assert(std::is_sorted(std::begin(kParagraphs), std::end(kParagraphs)));
    static_assert(std::is_sorted(std::begin(kWords), std::end(kWords)));
    if (std::binary_search(std::begin(kParagraphs), std::end(kParagraphs), name))
        return Separation::Paragraph;
    if (std::binary_search(std::begin(kWords), std::end(kWords), name)) return Separation::Word;
    return Separation::None;
}

bool EqualsNoCase(std::string_view text, std::string_view lower) noexcept {
    return std::equal(text.begin(), text.end(), lower.begin(), lower.end(), [](char letter, char other) {
        return (letter >= 'A' && letter <= 'Z' ? letter + 32 : letter) == other;
    });
}

class CHtmlReader final : public IHtmlContent {
 public:
    CExtractedText Take() {
        return {.text = m_text.Take(), .title = m_title.Take(), .author = m_author.Take(), .problem = {}};
    }

    void OnText(std::string_view text) override {
        if (m_templates != 0) return;
        CTextSink& sink = m_isInTitle ? m_title : m_text;
        if (text.find('&') == text.npos) {
            sink.Add(text);
        } else {
            sink.Add(WithoutReferences(text));
        }
    }

    void OnPlainText(std::string_view text) override {
        if (m_templates == 0) m_text.Add(text);
    }

    void OnStartTag(std::string_view name) override {
        if (name == "template") ++m_templates;
        if (name == "meta") UseMeta();
        // A drawing may have titles as well; the document's comes first.
        m_isInTitle = name == "title" && m_title.IsEmpty();
        Separate(name);
    }

    void OnEndTag(std::string_view name) override {
        if (name == "template" && m_templates != 0) --m_templates;
        m_isInTitle = false;
        Separate(name);
    }

    void OnAttribute(std::string_view name, std::string_view value) override {
        if (name == "name") m_metaName = value;
        if (name == "content") m_metaContent = value;
    }

 private:
    void UseMeta() {
        if (EqualsNoCase(m_metaName, "author") && m_author.IsEmpty()) {
            m_author.Add(WithoutReferences(m_metaContent));
        }
        m_metaName = m_metaContent = {};
    }

    void Separate(std::string_view name) noexcept {
        switch (SeparationOf(name)) {
            case Separation::None: break;
            case Separation::Word: m_text.EndWord(); break;
            case Separation::Paragraph: m_text.EndParagraph(); break;
        }
    }

    CTextSink m_text{kLargestText + 1};
    CTextSink m_title{kLargestProperty};
    CTextSink m_author{kLargestProperty};
    std::string_view m_metaName;
    std::string_view m_metaContent;
    std::size_t m_templates = 0;
    bool m_isInTitle = false;
};

}  // namespace

CExtractedText ReadHtml(std::string_view bytes) {
    const std::optional<std::string> document = DecodeHtml(bytes);
    if (!document) return Problem(kNoText);
    CHtmlReader reader;
    CHtmlTokenizer(*document, reader).Run();
    return reader.Take();
}

}  // namespace quorbel
