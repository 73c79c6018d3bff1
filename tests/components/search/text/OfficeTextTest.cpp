#include <filesystem>
#include <gmock/gmock.h>

#include "components/search/text/Problems.h"
#include "components/search/text/TextEncoding.h"
#include "components/search/worker/FileReader.h"
#include "components/search/worker/PdfText.h"
#include "components/search/worker/ZipReader.h"
#include "tests/components/search/text/Documents.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

CExtractedText Read(TextFormat format, std::string_view bytes) {
    return ReadTextOfFile(OpenBytes(bytes).Get(), format);
}

CExtractedText ReadWord(std::string_view body) {
    return Read(TextFormat::OfficeOpenXml, MakeWordDocument(body));
}

TEST(OfficeText, KeepsTheWordsOfADocument) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"", ""},
        {"<w:p><w:r><w:t>wo</w:t></w:r><w:r><w:t>rd &amp; more</w:t></w:r></w:p>", "word & more"},
        {"<w:p><w:t>a</w:t></w:p><w:p><w:t>b</w:t><w:br/><w:t>c</w:t><w:tab/><w:t>d</w:t></w:p>",
         "a\nb\nc d"},
        {"<w:p>stray<w:instrText>HYPERLINK</w:instrText><w:delText>gone</w:delText><w:t>a</w:t></w:p>", "a"},
        {"<w:p><mc:Choice><w:t>a</w:t></mc:Choice><mc:Fallback><w:p><w:t>a</w:t></w:p></mc:Fallback></w:p>",
         "a"},
        {"<w:p><w:t>\xD0\x96 <![CDATA[<x>]]> &#x4E2D;</w:t></w:p>", "\xD0\x96 <x> \xE4\xB8\xAD"},
    };
    for (const auto& [body, text] : cases) {
        const CExtractedText result = ReadWord(body);
        EXPECT_EQ(result.text, text) << body;
        EXPECT_EQ(result.problem, "") << body;
    }
}

TEST(OfficeText, JoinsThePartsOfADocumentInTheirOrder) {
    const auto run = [](std::string_view text) {
        return "<w:p xmlns:w='w'><w:t>" + std::string(text) + "</w:t></w:p>";
    };
    const std::string core =
        "<cp:p xmlns:cp='c' xmlns:dc='d'><dc:title> The\n log </dc:title><dc:creator>Ann</dc:creator></cp:p>";
    const ZipEntries word{{"word/footer1.xml", run("foot")},
                          {"word/document.xml", run("body")},
                          {"word/embeddings/a.docx", MakeWordDocument(run("inner"))},
                          {"word/header2.xml", run("h2")},
                          {"word/header1.xml", run("h1")},
                          {"word/footnotes.xml", run("note")},
                          {"word/styles.xml", run("style")},
                          {"word/_rels/document.xml", run("no")},
                          {"docProps/core.xml", core}};
    const CExtractedText result = Read(TextFormat::OfficeOpenXml, MakeZip(word));
    EXPECT_EQ(result.text, "body\nnote\nh1\nh2\nfoot");
    EXPECT_EQ(result.title, "The log");
    EXPECT_EQ(result.author, "Ann");

    const ZipEntries slides{{"ppt/slides/slide10.xml", run("ten")},
                            {"ppt/slides/slide2.xml", run("two")},
                            {"ppt/notesSlides/notesSlide1.xml", run("said")},
                            {"ppt/slides/slide1.xml", run("one")},
                            {"ppt/slides/slide1.xml", run("twice")}};
    EXPECT_EQ(Read(TextFormat::OfficeOpenXml, MakeZip(slides)).text, "one\ntwo\nten\nsaid");
}

TEST(OfficeText, KeepsTheStringsAndNumbersOfCells) {
    const ZipEntries book{
        {"xl/workbook.xml", "<w xmlns:r='r'><sheet name='Accounts &amp; more' r:id='1'/></w>"},
        {"xl/sharedStrings.xml",
         "<s><si><t>first</t></si><si><r><t>sec</t></r><r><t>ond</t></r><rPh><t>no</t></rPh></si></s>"},
        {"xl/worksheets/sheet1.xml",
         "<s><row><c t='s'><v>0</v></c><c><v>4711</v></c><c t='str'><f>A1</f><v>sum</v></c></row>"
         "<row><c t='inlineStr'><is><t>inline</t></is></c><c t='b'><v>1</v></c></row></s>"}};
    EXPECT_EQ(Read(TextFormat::OfficeOpenXml, MakeZip(book)).text,
              "Accounts & more\nfirst\nsecond\n4711 sum\ninline");
}

TEST(OpenDocumentText, KeepsTheWordsOfADocument) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"", ""},
        {"stray<text:h>Head</text:h><text:p>wo<text:span>rd</text:span><text:s/>next<text:line-break/>line</"
         "text:p>",
         "Head\nword next\nline"},
        {"<text:tracked-changes><text:p>gone</text:p></text:tracked-changes><text:p>kept</text:p>", "kept"},
        {"<table:table-row><table:table-cell><text:p>a</text:p></table:table-cell></table:table-row>", "a"},
    };
    for (const auto& [body, text] : cases) {
        const CExtractedText result = Read(TextFormat::OpenDocument, MakeOpenDocument(body));
        EXPECT_EQ(result.text, text) << body;
        EXPECT_EQ(result.problem, "") << body;
    }
    const ZipEntries entries{{"content.xml", "<o xmlns:t='t'><t:p>x</t:p></o>"},
                             {"meta.xml",
                              "<o xmlns:d='d' xmlns:m='m'><d:title>T</d:title><d:creator>Last</d:creator>"
                              "<m:initial-creator>First</m:initial-creator></o>"}};
    const CExtractedText result = Read(TextFormat::OpenDocument, MakeZip(entries));
    EXPECT_EQ(result.title, "T");
    EXPECT_EQ(result.author, "First");
}

std::string Repeated(std::string_view piece, std::size_t size) {
    std::string text;
    while (text.size() < size) text.append(piece);
    return text;
}

/// One entity for ten of the one before it.
std::string EntityBomb() {
    std::string document = "<!DOCTYPE o [<!ENTITY a0 \"laughter\">";
    for (int i = 1; i != 10; ++i) {
        document += "<!ENTITY a" + std::to_string(i) + " \"" +
                    Repeated("&a" + std::to_string(i - 1) + ";", 40) + "\">";
    }
    return document + "]><o xmlns:t='t'><t:p>&a9;</t:p></o>";
}

TEST(OpenDocumentText, FollowsNoEntities) {
    const std::string outside =
        "<!DOCTYPE o [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><o xmlns:t='t'><t:p>a&e;b</t:p></o>";
    for (const std::string& content : {EntityBomb(), outside}) {
        const CExtractedText result = Read(TextFormat::OpenDocument, MakeZip({{"content.xml", content}}));
        EXPECT_EQ(result.text.find("laughter"), std::string::npos);
        EXPECT_EQ(result.text.find("root"), std::string::npos);
    }
}

TEST(OfficeText, ThatCannotBeReadIsAProblem) {
    const std::string compound = "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1" + std::string(2000, '\0');
    const std::string encrypted =
        compound + std::string("E\0n\0c\0r\0y\0p\0t\0e\0d\0P\0a\0c\0k\0a\0g\0e\0", 32);
    const std::string manifest =
        "<m:manifest xmlns:m='m'><m:file-entry><m:encryption-data/></m:file-entry></m:manifest>";
    const std::string deep = Repeated("<d>", 100'000);
    const std::string wide(kLargestEntry + 1, ' ');
    const std::string document(100 << 20, ' ');
    ZipEntries many;
    for (std::size_t i = 0; i <= kMostEntries; ++i) many.emplace_back("x/" + std::to_string(i), "");
    const std::tuple<TextFormat, std::string, std::string_view> cases[] = {
        {TextFormat::OfficeOpenXml, "", kDamaged},
        {TextFormat::OfficeOpenXml, "no zip at all", kDamaged},
        {TextFormat::OfficeOpenXml, compound, kDamaged},
        {TextFormat::OfficeOpenXml, encrypted, kEncrypted},
        {TextFormat::OfficeOpenXml, MakeZip({{"a.txt", "x"}}), kNoDocument},
        {TextFormat::OfficeOpenXml, MakeZip({{"word/document.xml", "<a><b></a>"}}), kDamaged},
        {TextFormat::OfficeOpenXml, MakeZip({{"word/document.xml", ""}}), kDamaged},
        {TextFormat::OfficeOpenXml, MakeZip({{"word/document.xml", deep}}), kDamaged},
        {TextFormat::OfficeOpenXml, MakeZip({{"word/document.xml", "<a>" + wide + "</a>"}}), kExpandsTooMuch},
        {TextFormat::OfficeOpenXml,
         MakeZip({{"word/header1.xml", "<a>" + document + "</a>"},
                  {"word/header2.xml", "<a>" + document + "</a>"},
                  {"word/header3.xml", "<a>" + document + "</a>"}}),
         kExpandsTooMuch},
        {TextFormat::OfficeOpenXml, MakeZip(many), kTooManyParts},
        {TextFormat::OfficeOpenXml,
         MakeWordDocument(Repeated("<w:t>" + std::string(1 << 20, 'a') + "</w:t>", kLargestText + 1)),
         kTooMuchText},
        {TextFormat::OpenDocument, "", kDamaged},
        {TextFormat::OpenDocument, MakeZip({{"a.txt", "x"}}), kNoDocument},
        {TextFormat::OpenDocument,
         MakeZip({{"content.xml", "\x01\x02"}, {"META-INF/manifest.xml", manifest}}), kEncrypted},
        {TextFormat::OpenDocument, MakeZip({{"encrypted-package", "x"}, {"META-INF/manifest.xml", manifest}}),
         kEncrypted},
    };
    int index = 0;
    for (const auto& [format, bytes, problem] : cases) {
        const CExtractedText result = Read(format, bytes);
        EXPECT_EQ(result.problem, problem) << index;
        EXPECT_EQ(result.text, "") << index++;
    }
}

TEST(OfficeText, OfACutOrChangedFileIsAProblemOrStillText) {
    const std::string word = MakeWordDocument("<w:p><w:t>" + Repeated("some words ", 3000) + "</w:t></w:p>");
    for (std::size_t size = 0; size < word.size(); size += 7) {
        EXPECT_NE(Read(TextFormat::OfficeOpenXml, word.substr(0, size)).problem, "") << size;
    }
    for (std::size_t at = 0; at < word.size(); ++at) {
        std::string changed = word;
        changed[at] = static_cast<char>(changed[at] ^ 0x55);
        const CExtractedText result = Read(TextFormat::OfficeOpenXml, changed);
        EXPECT_TRUE(IsUtf8(result.text)) << at;
        EXPECT_TRUE(result.problem.empty() || result.text.empty()) << at;
    }
}

struct CPdfCase {
    std::string bytes;
    std::string_view text;
    std::string_view title;
    std::string_view author;
    std::string_view problem;
};

TEST(PdfText, HasTextTitleAndAuthorOrAProblem) {
    const std::string pdf = MakePdf("Words of a page", "");
    const CPdfCase cases[] = {
        {pdf, "Words of a page", "", "", ""},
        {MakePdf("x < y & <pre>", "/Title(A <b> & </title>)/Author(Ann)"), "x < y & <pre>",
         "A <b> & </title>", "Ann", ""},
        {MakePdf("", ""), "", "", "", ""},
        {MakePdf("gr\\374n", "/Title<FEFF65E5672C>"), "gr\xC3\xBCn", "\xE6\x97\xA5\xE6\x9C\xAC", "", ""},
        {"", "", "", "", kDamaged},
        {"no PDF at all", "", "", "", kDamaged},
        {pdf.substr(0, 60), "", "", "", kDamaged},
    };
    for (const CPdfCase& each : cases) {
        const CExtractedText result = Read(TextFormat::Pdf, each.bytes);
        EXPECT_EQ(result.text, each.text) << each.bytes;
        EXPECT_EQ(result.title, each.title) << each.bytes;
        EXPECT_EQ(result.author, each.author) << each.bytes;
        EXPECT_EQ(result.problem, each.problem) << each.bytes;
    }
}

TEST(PdfText, IsEncryptedWhenNobodyCanReadItWithoutAPassword) {
    const std::filesystem::path files(QUORBEL_SOURCES "/tests/components/search/text/files");
    const CExtractedText closed = Read(TextFormat::Pdf, ReadFile(files / "password.pdf"));
    EXPECT_EQ(closed.problem, kEncrypted);
    const CExtractedText open = Read(TextFormat::Pdf, ReadFile(files / "owner-password.pdf"));
    EXPECT_EQ(open.text, "Secret words");
}

TEST(PdfText, SaysWhenItsProgramIsMissing) {
    const CFileDescriptor file = OpenBytes(MakePdf("x", ""));
    EXPECT_THAT(ReadPdf(file.Get(), "/nonexistent/pdftotext").problem, testing::HasSubstr("not installed"));
    EXPECT_EQ(ReadPdf(file.Get(), "/bin/false").problem, kDamaged);
}

}  // namespace
}  // namespace quorbel
