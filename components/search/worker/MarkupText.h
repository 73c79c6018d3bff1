#pragma once

#include <span>
#include <string>
#include <string_view>

#include "components/search/text/TextSink.h"
#include "components/search/worker/XmlParser.h"

namespace quorbel {

/// What the elements of a vocabulary do to a document's text, by their names without prefix.
struct CMarkupRules {
    std::span<const std::string_view> text;        ///< their content is text
    std::span<const std::string_view> paragraphs;  ///< begin and end a paragraph
    std::span<const std::string_view> words;       ///< separate words
    std::span<const std::string_view> skipped;     ///< nothing in them is text
};

/// Takes the text out of XML by rules.
class CMarkupText : public IXmlContent {
 public:
    CMarkupText(const CMarkupRules& rules, CTextSink& sink) noexcept : m_rules(rules), m_sink(sink) {}

    void OnStart(std::string_view name, std::span<const CXmlAttribute> attributes) override;
    void OnEnd(std::string_view name) override;
    void OnText(std::string_view text) override;

 private:
    void Separate(std::string_view name);

    const CMarkupRules m_rules;
    CTextSink& m_sink;
    std::size_t m_textDepth = 0;
    std::size_t m_skippedDepth = 0;
};

/// The value of an attribute; empty without it.
std::string_view AttributeValue(std::span<const CXmlAttribute> attributes, std::string_view name) noexcept;

}  // namespace quorbel
