#pragma once

#include <string>
#include <string_view>

namespace quorbel {

/// Gathers the text of a document that comes in pieces: words are separated by one blank, paragraphs by one
/// line feed; white space and control characters only separate.
class CTextSink {
 public:
    /// Takes `largest` bytes at most.
    explicit CTextSink(std::size_t largest) noexcept : m_largest(largest) {}

    /// Valid UTF-8, of which a character may come in two pieces. Without white space between them, two
    /// pieces make one word.
    void Add(std::string_view text);
    void EndWord() noexcept;
    void EndParagraph() noexcept { m_gap = Gap::Paragraph; }

    /// More text came than is taken.
    bool IsFull() const noexcept { return m_isFull; }
    bool IsEmpty() const noexcept { return m_text.empty(); }
    /// The text, cut off between two characters; the object is spent.
    std::string Take();

 private:
    enum class Gap { None, Word, Paragraph };
    void AddRun(std::string_view run);

    const std::size_t m_largest;
    std::string m_text;
    Gap m_gap = Gap::None;
    bool m_isFull = false;
};

}  // namespace quorbel
