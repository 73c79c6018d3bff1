#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

struct _xmlParserCtxt;

namespace quorbel {

struct CXmlAttribute {
    std::string_view name;  ///< without prefix
    std::string_view value;
};

/// Receives the content of an XML document in its order. Names come without their prefix. Texts are UTF-8.
class IXmlContent {
 public:
    virtual void OnStart(std::string_view name, std::span<const CXmlAttribute> attributes) = 0;
    virtual void OnEnd(std::string_view name) = 0;
    virtual void OnText(std::string_view text) = 0;

 protected:
    ~IXmlContent() = default;
};

/// Parses a document that comes in pieces. Document types, their entities and whatever else is outside the
/// document are not followed.
class CXmlParser {
 public:
    /// The content receives calls during Parse and Finish. Throws std::bad_alloc.
    explicit CXmlParser(IXmlContent& content);
    ~CXmlParser();
    CXmlParser(const CXmlParser&) = delete;
    CXmlParser& operator=(const CXmlParser&) = delete;

    /// False when the document is not well-formed, or nested beyond reason.
    bool Parse(std::string_view bytes);
    /// False when the document is not complete.
    bool Finish();

 private:
    struct CCallbacks;
    struct CRelease {
        void operator()(_xmlParserCtxt* parser) const noexcept;
    };
    IXmlContent& m_content;
    std::unique_ptr<_xmlParserCtxt, CRelease> m_parser;
    std::exception_ptr m_failure;
};

}  // namespace quorbel
