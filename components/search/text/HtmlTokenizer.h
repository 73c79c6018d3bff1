#pragma once

#include <string>
#include <string_view>

namespace quorbel {

/// Receives the pieces of an HTML document in their order. Names are in lower case.
class IHtmlContent {
 public:
    /// Characters between tags; references in them are not replaced yet.
    virtual void OnText(std::string_view text) = 0;
    /// What stands in a CDATA section.
    virtual void OnPlainText(std::string_view text) = 0;
    virtual void OnStartTag(std::string_view name) = 0;
    /// An attribute of the start tag that follows.
    virtual void OnAttribute(std::string_view name, std::string_view value) = 0;
    virtual void OnEndTag(std::string_view name) = 0;

 protected:
    ~IHtmlContent() = default;
};

/// Splits an HTML document into tags and text in one pass, whatever it holds, and keeps nothing but its
/// place: neither the time for a byte nor the memory grows with nesting, with the number of attributes or
/// with what is left open. Scripts, styles and comments are left out.
class CHtmlTokenizer {
 public:
    CHtmlTokenizer(std::string_view document, IHtmlContent& content) noexcept
        : m_rest(document), m_content(content) {}
    void Run();

 private:
    void ReadMarkup();
    void ReadDeclaration();
    void ReadStartTag();
    void ReadEndTag();
    std::string TakeTagName();
    /// Takes attributes up to the tag's end; false when the document ends before.
    bool TakeAttributes(bool isWanted);
    std::string_view TakeValue();
    /// The content of an element in which no tag but its own end tag is one.
    void ReadRawText(std::string_view name);
    void SkipBehind(std::string_view mark) noexcept;
    void SkipBlanks() noexcept;

    std::string_view m_rest;
    IHtmlContent& m_content;
};

}  // namespace quorbel
