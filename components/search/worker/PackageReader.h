#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "components/search/text/TextExtractor.h"
#include "components/search/text/TextSink.h"
#include "components/search/worker/XmlParser.h"
#include "components/search/worker/ZipReader.h"

namespace quorbel {

/// The simple elements of a document's properties that are looked for, by name without prefix.
class CPropertyContent final : public IXmlContent {
 public:
    void OnStart(std::string_view name, std::span<const CXmlAttribute> attributes) override;
    void OnEnd(std::string_view name) override;
    void OnText(std::string_view text) override;

    /// The first value that is not empty; empty without one.
    std::string Value(std::string_view name) const;

 private:
    std::map<std::string, std::string, std::less<>> m_values;
    std::optional<CTextSink> m_sink;  // of the element that is open
};

/// A part of a document, and the place that its text has among those of the others.
struct CPartPlace {
    int group = 0;
    unsigned number = 0;
    auto operator<=>(const CPartPlace&) const = default;
};

/// Reads the XML parts of a document that is a ZIP file, and gathers their texts.
class CPackageReader {
 public:
    explicit CPackageReader(int file) : m_zip(file) {}

    /// Goes to the next part; false at the end, and when there is a problem.
    bool Next(std::string& name);
    /// Parses the part for its content; a part that is not well-formed is a problem.
    void Parse(IXmlContent& content);
    /// Parses the part for its text, which then has that place; of two parts at one place the first stays.
    void ParseText(CPartPlace place, const std::function<void(CTextSink&, CPackageReader&)>& parse);
    void SetProblem(std::string_view problem);

    const std::string& Problem() const noexcept { return m_problem; }
    bool HasTexts() const noexcept { return !m_texts.empty(); }
    /// All of the texts in the order of their places.
    std::string TakeText();

 private:
    bool IsRead(ZipStep step);

    CZipReader m_zip;
    std::string m_problem;
    std::map<CPartPlace, std::string> m_texts;
    std::size_t m_size = 0;
};

}  // namespace quorbel
