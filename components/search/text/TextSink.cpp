#include "components/search/text/TextSink.h"

#include "components/search/text/TextEncoding.h"

namespace quorbel {

namespace {

bool Separates(char byte) noexcept {
    return static_cast<unsigned char>(byte) <= ' ' || byte == '\x7F';
}

}  // namespace

void CTextSink::EndWord() noexcept {
    if (m_gap == Gap::None) m_gap = Gap::Word;
}

void CTextSink::Add(std::string_view text) {
    std::size_t i = 0;
    while (i != text.size() && !m_isFull) {
        const std::size_t start = i;
        while (i != text.size() && !Separates(text[i])) ++i;
        if (i != start) AddRun(text.substr(start, i - start));
        if (i != text.size()) EndWord();
        while (i != text.size() && Separates(text[i])) ++i;
    }
}

void CTextSink::AddRun(std::string_view run) {
    if (m_gap != Gap::None && !m_text.empty()) m_text.push_back(m_gap == Gap::Word ? ' ' : '\n');
    m_gap = Gap::None;
    m_isFull = run.size() > m_largest || m_text.size() > m_largest - run.size();
    m_text.append(run.substr(0, m_largest + 1));
}

std::string CTextSink::Take() {
    m_text.resize(CutUtf8(m_text, m_largest).size());
    return std::move(m_text);
}

}  // namespace quorbel
