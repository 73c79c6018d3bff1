#include "data/HTTPObject.h"

namespace quorbel {

std::string CHTTPObject::Xml() const {
    const std::string text = m_value->Xml();
    return m_name.empty() ? text : "<" + m_name + ">" + text + "</" + m_name + ">";
}

std::string CHTTPObject::Json() const {
    const std::string text = m_value->Json();
    const std::string quoted = "\"" + m_name + "\":";
    if (m_value->GetKind() != Kind::List) return quoted + text;
    return m_name.empty() ? "{" + text + "}" : "{" + quoted + "{" + text + "}}";
}

std::string CHTTPObject::List::Xml() const {
    std::string text;
    for (const CHTTPObject& entry : m_entries) text += entry.Xml();
    return text;
}

std::string CHTTPObject::List::Json() const {
    std::string text;
    for (const CHTTPObject& entry : m_entries) {
        if (!text.empty()) text += ", ";
        text += entry.Json();
    }
    return text;
}

}  // namespace quorbel
