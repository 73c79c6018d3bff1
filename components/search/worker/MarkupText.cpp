#include "components/search/worker/MarkupText.h"

#include <algorithm>

namespace quorbel {

namespace {

bool Holds(std::span<const std::string_view> names, std::string_view name) noexcept {
    return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

void CMarkupText::OnStart(std::string_view name, std::span<const CXmlAttribute>) {
    if (m_skippedDepth != 0 || Holds(m_rules.skipped, name)) {
        ++m_skippedDepth;
        return;
    }
    Separate(name);
    if (Holds(m_rules.text, name)) ++m_textDepth;
}

void CMarkupText::OnEnd(std::string_view name) {
    if (m_skippedDepth != 0) {
        --m_skippedDepth;
        return;
    }
    Separate(name);
    if (m_textDepth != 0 && Holds(m_rules.text, name)) --m_textDepth;
}

void CMarkupText::OnText(std::string_view text) {
    if (m_skippedDepth == 0 && m_textDepth != 0) m_sink.Add(text);
}

void CMarkupText::Separate(std::string_view name) {
    if (Holds(m_rules.paragraphs, name)) {
        m_sink.EndParagraph();
    } else if (Holds(m_rules.words, name)) {
        m_sink.EndWord();
    }
}

std::string_view AttributeValue(std::span<const CXmlAttribute> attributes, std::string_view name) noexcept {
    for (const CXmlAttribute& attribute : attributes) {
        if (attribute.name == name) return attribute.value;
    }
    return {};
}

}  // namespace quorbel
