#include "components/search/worker/OfficeOpenXml.h"

#include <algorithm>
#include <charconv>
#include <unistd.h>

#include "components/search/text/HtmlEncoding.h"
#include "components/search/text/Problems.h"
#include "components/search/worker/MarkupText.h"
#include "components/search/worker/PackageReader.h"

namespace quorbel {

namespace {

/// Paragraphs and runs, as in documents and drawings. The content of a fallback stands once more beside it.
constexpr std::string_view kRunText[] = {"t"};
constexpr std::string_view kRunParagraphs[] = {"p", "br", "cr"};
constexpr std::string_view kRunWords[] = {"tab", "tc"};
constexpr std::string_view kRunSkipped[] = {"Fallback"};
constexpr CMarkupRules kRuns{kRunText, kRunParagraphs, kRunWords, kRunSkipped};

/// Strings of cells. Phonetic readings would stand within the words.
constexpr std::string_view kStringParagraphs[] = {"si", "row"};
constexpr std::string_view kStringWords[] = {"c"};
constexpr std::string_view kStringSkipped[] = {"rPh"};
constexpr CMarkupRules kStrings{kRunText, kStringParagraphs, kStringWords, kStringSkipped};

/// The cells of a sheet: their own strings, and values that are no number of a shared string.
class CSheetContent final : public CMarkupText {
 public:
    explicit CSheetContent(CTextSink& sink) noexcept : CMarkupText(kStrings, sink), m_sink(sink) {}

    void OnStart(std::string_view name, std::span<const CXmlAttribute> attributes) override {
        CMarkupText::OnStart(name, attributes);
        if (name == "c") {
            const std::string_view type = AttributeValue(attributes, "t");
            m_isValueText = type.empty() || type == "n" || type == "str" || type == "d";
        }
        m_isInValue = name == "v" && m_isValueText;
    }
    void OnEnd(std::string_view name) override {
        CMarkupText::OnEnd(name);
        m_isInValue = false;
    }
    void OnText(std::string_view text) override {
        if (m_isInValue) {
            m_sink.Add(text);
        } else {
            CMarkupText::OnText(text);
        }
    }

 private:
    CTextSink& m_sink;
    bool m_isValueText = false;
    bool m_isInValue = false;
};

class CSheetNames final : public IXmlContent {
 public:
    explicit CSheetNames(CTextSink& sink) noexcept : m_sink(sink) {}

    void OnStart(std::string_view name, std::span<const CXmlAttribute> attributes) override {
        if (name != "sheet") return;
        // The library leaves references to "&" in attributes as they are.
        m_sink.Add(WithoutReferences(AttributeValue(attributes, "name")));
        m_sink.EndParagraph();
    }
    void OnEnd(std::string_view) override {}
    void OnText(std::string_view) override {}

 private:
    CTextSink& m_sink;
};

enum class PartContent { Runs, Strings, Sheet, SheetNames };

/// The parts that have text: a part of a kind that there may be more of has a number before ".xml".
struct CPartKind {
    std::string_view start;
    PartContent content;
};

constexpr CPartKind kParts[] = {
    {"word/document", PartContent::Runs},
    {"word/footnotes", PartContent::Runs},
    {"word/endnotes", PartContent::Runs},
    {"word/comments", PartContent::Runs},
    {"word/header", PartContent::Runs},
    {"word/footer", PartContent::Runs},
    {"xl/workbook", PartContent::SheetNames},
    {"xl/sharedStrings", PartContent::Strings},
    {"xl/worksheets/sheet", PartContent::Sheet},
    {"ppt/slides/slide", PartContent::Runs},
    {"ppt/notesSlides/notesSlide", PartContent::Runs},
};

/// The number between the part's name and ".xml", 0 when nothing stands there; none for another part.
std::optional<unsigned> NumberOfPart(std::string_view name, std::string_view start) noexcept {
    constexpr std::string_view kEnd = ".xml";
    if (!name.starts_with(start) || !name.ends_with(kEnd) || name.size() < start.size() + kEnd.size())
        return {};
    name = name.substr(start.size(), name.size() - start.size() - kEnd.size());
    unsigned number = 0;
    if (name.empty()) return number;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error != std::errc() || end != name.data() + name.size()) return std::nullopt;
    return number;
}

void ParseContent(PartContent kind, CTextSink& sink, CPackageReader& package) {
    CMarkupText runs(kRuns, sink);
    CMarkupText strings(kStrings, sink);
    CSheetContent sheet(sink);
    CSheetNames names(sink);
    switch (kind) {
        case PartContent::Runs: package.Parse(runs); break;
        case PartContent::Strings: package.Parse(strings); break;
        case PartContent::Sheet: package.Parse(sheet); break;
        case PartContent::SheetNames: package.Parse(names); break;
    }
}

void ReadPart(const std::string& name, CPackageReader& package, CPropertyContent& properties) {
    if (name == "docProps/core.xml") {
        package.Parse(properties);
        return;
    }
    for (int group = 0; group != static_cast<int>(std::size(kParts)); ++group) {
        const CPartKind& kind = kParts[group];
        const std::optional<unsigned> number = NumberOfPart(name, kind.start);
        if (!number) continue;
        package.ParseText({group, *number}, [&](CTextSink& sink, CPackageReader& reader) {
            ParseContent(kind.content, sink, reader);
        });
        return;
    }
}

/// An encrypted document is a stream of this name in a file of another kind (OLE compound file).
std::string_view ProblemOfCompoundFile(int file) {
    constexpr std::string_view kSignature("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8);
    constexpr std::string_view kStream("E\0n\0c\0r\0y\0p\0t\0e\0d\0P\0a\0c\0k\0a\0g\0e", 31);
    std::string bytes(1 << 20, '\0');
    off_t offset = 0;
    while (true) {
        const ssize_t got = ::pread(file, bytes.data(), bytes.size(), offset);
        if (got <= 0) return kDamaged;
        const std::string_view read(bytes.data(), static_cast<std::size_t>(got));
        if (offset == 0 && !read.starts_with(kSignature)) return kDamaged;
        if (read.find(kStream) != read.npos) return kEncrypted;
        // The name may lie across the border of two pieces.
        offset += std::max<off_t>(got - static_cast<off_t>(kStream.size()), 1);
    }
}

}  // namespace

CExtractedText ReadOfficeOpenXml(int file) {
    CPackageReader package(file);
    CPropertyContent properties;
    std::string name;
    bool isPackage = false;
    while (package.Next(name)) {
        isPackage = true;
        ReadPart(name, package, properties);
    }
    if (!isPackage && package.Problem() == kDamaged) return Problem(ProblemOfCompoundFile(file));
    if (!package.Problem().empty()) return Problem(package.Problem());
    if (!package.HasTexts()) return Problem(kNoDocument);
    return {.text = package.TakeText(),
            .title = properties.Value("title"),
            .author = properties.Value("creator"),
            .problem = {}};
}

}  // namespace quorbel
