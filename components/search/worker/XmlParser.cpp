#include "components/search/worker/XmlParser.h"

#include <exception>
#include <libxml/parser.h>
#include <new>
#include <vector>

namespace quorbel {

namespace {

std::string_view View(const xmlChar* text) noexcept {
    return text != nullptr ? reinterpret_cast<const char*>(text) : "";
}

std::string_view View(const xmlChar* begin, const xmlChar* end) noexcept {
    return {reinterpret_cast<const char*>(begin), static_cast<std::size_t>(end - begin)};
}

}  // namespace

/// The library is C: an exception must not pass through it.
struct CXmlParser::CCallbacks {
    template <class TCall>
    static void Guarded(void* context, TCall&& call) noexcept {
        auto& self = *static_cast<CXmlParser*>(static_cast<xmlParserCtxtPtr>(context)->_private);
        if (self.m_failure) return;
        try {
            call(self.m_content);
        } catch (...) {
            self.m_failure = std::current_exception();
            ::xmlStopParser(self.m_parser.get());
        }
    }

    static void OnStart(void* context, const xmlChar* name, const xmlChar*, const xmlChar*, int,
                        const xmlChar**, int count, int, const xmlChar** parts) noexcept {
        Guarded(context, [&](IXmlContent& content) {
            // Name, prefix, namespace, begin and end of the value.
            constexpr int kParts = 5;
            std::vector<CXmlAttribute> attributes;
            attributes.reserve(static_cast<std::size_t>(count));
            for (int i = 0; i != count; ++i, parts += kParts) {
                attributes.push_back({View(parts[0]), View(parts[3], parts[4])});
            }
            content.OnStart(View(name), attributes);
        });
    }

    static void OnEnd(void* context, const xmlChar* name, const xmlChar*, const xmlChar*) noexcept {
        Guarded(context, [&](IXmlContent& content) { content.OnEnd(View(name)); });
    }

    static void OnText(void* context, const xmlChar* text, int size) noexcept {
        Guarded(context, [&](IXmlContent& content) { content.OnText(View(text, text + size)); });
    }
};

void CXmlParser::CRelease::operator()(_xmlParserCtxt* parser) const noexcept {
    ::xmlFreeDoc(parser->myDoc);
    ::xmlFreeParserCtxt(parser);
}

CXmlParser::CXmlParser(IXmlContent& content) : m_content(content) {
    // What has no handler is dropped: document types leave no entity behind that could be expanded.
    xmlSAXHandler handler{};
    handler.initialized = XML_SAX2_MAGIC;
    handler.startElementNs = &CCallbacks::OnStart;
    handler.endElementNs = &CCallbacks::OnEnd;
    handler.characters = &CCallbacks::OnText;
    handler.ignorableWhitespace = &CCallbacks::OnText;
    handler.cdataBlock = &CCallbacks::OnText;
    m_parser.reset(::xmlCreatePushParserCtxt(&handler, nullptr, nullptr, 0, nullptr));
    if (!m_parser) throw std::bad_alloc();
    m_parser->_private = this;
    ::xmlCtxtUseOptions(m_parser.get(), XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
}

CXmlParser::~CXmlParser() = default;

bool CXmlParser::Parse(std::string_view bytes) {
    const int result = ::xmlParseChunk(m_parser.get(), bytes.data(), static_cast<int>(bytes.size()), 0);
    if (m_failure) std::rethrow_exception(m_failure);
    if (result == XML_ERR_NO_MEMORY) throw std::bad_alloc();
    return m_parser->wellFormed != 0 && m_parser->disableSAX == 0;
}

bool CXmlParser::Finish() {
    ::xmlParseChunk(m_parser.get(), nullptr, 0, 1);
    if (m_failure) std::rethrow_exception(m_failure);
    return m_parser->wellFormed != 0;
}

}  // namespace quorbel
