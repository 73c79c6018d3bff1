#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

namespace quorbel {

/// A named value of a document, written as XML or as JSON. All text is narrow and is written unchanged:
/// nothing is escaped.
class CHTTPObject {
 public:
    enum class Kind : std::uint32_t {
        Literal = 1,  ///< a text without quotes in JSON
        String = 2,
        List = 5,
    };
    class Base;
    class String;
    class List;
    template <class Value>
    class Container;
    template <class Object>
    class Complex;

    CHTTPObject(std::string name, std::shared_ptr<const Base> value)
        : m_name(std::move(name)), m_value(std::move(value)) {}

    /// The value's XML text, between tags of the name unless that is empty.
    std::string Xml() const;
    std::string Json() const;

 private:
    std::string m_name;
    std::shared_ptr<const Base> m_value;
};

class CHTTPObject::Base {
 public:
    explicit Base(Kind kind) noexcept : m_kind(kind) {}
    virtual ~Base() = default;
    virtual std::string Xml() const = 0;
    virtual std::string Json() const = 0;
    Kind GetKind() const noexcept { return m_kind; }

 private:
    const Kind m_kind;
};

/// A text.
class CHTTPObject::String {
 public:
    String(Kind kind, std::string text) : m_kind(kind), m_text(std::move(text)) {}
    std::string Xml() const { return m_text; }
    std::string Json() const { return m_kind == Kind::Literal ? m_text : "\"" + m_text + "\""; }
    Kind GetKind() const noexcept { return m_kind; }

 private:
    Kind m_kind;
    std::string m_text;
};

/// Entries in the order they were appended.
class CHTTPObject::List {
 public:
    void Append(CHTTPObject entry) { m_entries.push_back(std::move(entry)); }
    std::string Xml() const;
    std::string Json() const;
    Kind GetKind() const noexcept { return Kind::List; }

 private:
    std::list<CHTTPObject> m_entries;
};

/// A value as a document holds it.
template <class Value>
class CHTTPObject::Container final : public CHTTPObject::Base {
 public:
    explicit Container(Value value) : Base(value.GetKind()), m_value(std::move(value)) {}
    std::string Xml() const override { return m_value.Xml(); }
    std::string Json() const override { return m_value.Json(); }

 private:
    const Value m_value;
};

/// Builds a document: an unnamed list.
template <class Object>
class CHTTPObject::Complex {
 public:
    void Append(std::string name, std::string text, Kind kind = Kind::String) {
        m_list.Append({std::move(name), std::make_shared<Container<String>>(String(kind, std::move(text)))});
    }
    Object Take() && { return {"", std::make_shared<Container<List>>(std::move(m_list))}; }

 private:
    List m_list;
};

}  // namespace quorbel
