#include "components/search/worker/OpenDocument.h"

#include "components/search/text/Problems.h"
#include "components/search/worker/MarkupText.h"
#include "components/search/worker/PackageReader.h"

namespace quorbel {

namespace {

constexpr std::string_view kText[] = {"p", "h"};
constexpr std::string_view kParagraphs[] = {"p", "h", "line-break", "table-row"};
constexpr std::string_view kWords[] = {"s", "tab", "table-cell"};
constexpr std::string_view kSkipped[] = {"tracked-changes"};
constexpr CMarkupRules kRules{kText, kParagraphs, kWords, kSkipped};

/// Says which parts are encrypted.
class CManifest final : public IXmlContent {
 public:
    void OnStart(std::string_view name, std::span<const CXmlAttribute>) override {
        if (name == "encryption-data") m_isEncrypted = true;
    }
    void OnEnd(std::string_view) override {}
    void OnText(std::string_view) override {}

    bool IsEncrypted() const noexcept { return m_isEncrypted; }

 private:
    bool m_isEncrypted = false;
};

/// The manifest usually comes last, when the encrypted parts have already been taken for damaged ones.
bool IsEncrypted(int file) {
    CPackageReader package(file);
    std::string name;
    CManifest manifest;
    while (package.Next(name)) {
        if (name == "META-INF/manifest.xml") package.Parse(manifest);
    }
    return manifest.IsEncrypted();
}

}  // namespace

CExtractedText ReadOpenDocument(int file) {
    CPackageReader package(file);
    CPropertyContent properties;
    std::string name;
    while (package.Next(name)) {
        if (name == "content.xml") {
            package.ParseText({}, [](CTextSink& sink, CPackageReader& reader) {
                CMarkupText text(kRules, sink);
                reader.Parse(text);
            });
        } else if (name == "meta.xml") {
            package.Parse(properties);
        }
    }
    if ((!package.Problem().empty() || !package.HasTexts()) && IsEncrypted(file)) return Problem(kEncrypted);
    if (!package.Problem().empty()) return Problem(package.Problem());
    if (!package.HasTexts()) return Problem(kNoDocument);
    const std::string author = properties.Value("initial-creator");
    return {.text = package.TakeText(),
            .title = properties.Value("title"),
            .author = author.empty() ? properties.Value("creator") : author,
            .problem = {}};
}

}  // namespace quorbel
