#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <thread>

#include "components/search/text/Problems.h"
#include "components/search/text/TextWorker.h"
#include "tests/components/search/text/Documents.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

class TextWorker : public testing::Test {
 protected:
    CTextWorker::Options Real() const { return {.program = QUORBEL_PROGRAMS "/QbTextExtract"}; }

    /// A program that plays that part.
    CTextWorker::Options Fake(const std::string& role) const {
        const std::filesystem::path program = m_folder / role;
        std::filesystem::create_symlink(QUORBEL_FAKE_WORKER, program);
        return {.program = program.string()};
    }

    CExtractedText Extract(CTextWorker& worker, TextFormat format, std::string_view bytes) {
        auto result = worker.Extract(OpenBytes(bytes).Get(), format, *m_stop);
        EXPECT_TRUE(result.IsOk());
        return result.IsOk() ? result.Value() : CExtractedText{};
    }

    const CTemporaryFolder m_folder;
    const std::shared_ptr<CEvent> m_stop = CEvent::Create(EventReset::Manual).Value();
};

TEST_F(TextWorker, ReadsEveryFormatOneAfterTheOther) {
    CTextWorker worker(Real());
    const std::string pdf = MakePdf("Words of a page", "/Title(A title)/Author(Ann)");
    for (int round = 0; round != 3; ++round) {
        const CExtractedText page = Extract(worker, TextFormat::Pdf, pdf);
        EXPECT_EQ(page.problem, "");
        EXPECT_EQ(page.text, "Words of a page");
        EXPECT_EQ(page.title, "A title");
        EXPECT_EQ(page.author, "Ann");
        EXPECT_EQ(Extract(worker, TextFormat::OfficeOpenXml, "PK\x03\x04").problem, kDamaged);
        EXPECT_EQ(Extract(worker, TextFormat::OfficeOpenXml, MakeWordDocument("<w:t>word</w:t>")).text,
                  "word");
        EXPECT_EQ(Extract(worker, TextFormat::OpenDocument, MakeOpenDocument("<text:p>open</text:p>")).text,
                  "open");
        EXPECT_EQ(Extract(worker, TextFormat::Html, "<p>a<p>b").text, "a\nb");
    }
}

TEST_F(TextWorker, HandsOverTextsOfEverySize) {
    CTextWorker worker(Real());
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{65536 - 16}, std::size_t{65536}, kLargestText}) {
        const std::string text(size, 'a');
        EXPECT_EQ(Extract(worker, TextFormat::Plain, text).text, text);
    }
    const std::string longTitle = "<title>" + std::string(2 * kLargestProperty, 't') + "</title>";
    EXPECT_EQ(Extract(worker, TextFormat::Html, longTitle).title, std::string(kLargestProperty, 't'));
    EXPECT_EQ(Extract(worker, TextFormat::Plain, std::string(kLargestTextFile + 1, 'a')).problem, kTooLarge);
}

TEST_F(TextWorker, ReadsNothingButRegularFiles) {
    CTextWorker worker(Real());
    const CFileDescriptor folder(::open("/", O_RDONLY | O_CLOEXEC));
    const auto result = worker.Extract(folder.Get(), TextFormat::Pdf, *m_stop);
    EXPECT_EQ(result.Value().problem, kUnreadable);
}

TEST_F(TextWorker, BlamesTheFileThatMakesItFail) {
    const std::pair<std::string, std::string_view> cases[] = {
        {"ends", "ended without an answer"},
        {"dies", "ended without an answer"},
        {"refuses", "failed: it cannot be\nconfined \xEF\xBF\xBD"},
        {"reports-signal", "signal 11"},
        {"reports-status", "status 3"},
        {"says-nonsense", "ended without an answer"},
        {"floods", "makes no sense"},
        {"answers-nothing", "makes no sense"},
        {"answers-short", "makes no sense"},
        {"answers-long", "makes no sense"},
        {"answers-huge-length", "makes no sense"},
        {"answers-invalid-utf8", "makes no sense"},
        {"answers-nul", "makes no sense"},
    };
    for (const auto& [role, how] : cases) {
        CTextWorker worker(Fake(role));
        // The second file gets a process of its own, and fails like the first.
        for (int file = 0; file != 2; ++file) {
            const CExtractedText result = Extract(worker, TextFormat::Pdf, "x");
            EXPECT_THAT(result.problem, HasSubstr("its reader failed: ")) << role;
            EXPECT_THAT(result.problem, HasSubstr(how)) << role;
            EXPECT_EQ(result.text + result.title + result.author, "") << role;
        }
    }
}

TEST_F(TextWorker, BlamesNoFileForAProcessThatEndedAfterAnother) {
    CTextWorker worker(Fake("answers-once"));
    for (int file = 0; file != 5; ++file) {
        const CExtractedText result = Extract(worker, TextFormat::Pdf, "x");
        EXPECT_EQ(result.text, "fine");
        EXPECT_EQ(result.problem, "");
    }
}

TEST_F(TextWorker, OutlivesTheThreadThatStartedItsProcess) {
    CTextWorker worker(Real());
    std::thread([&] { EXPECT_EQ(Extract(worker, TextFormat::Plain, "one").text, "one"); }).join();
    EXPECT_EQ(Extract(worker, TextFormat::Plain, "two").text, "two");
}

TEST_F(TextWorker, GivesUpAfterItsTime) {
    for (const std::string role : {"hangs", "keeps-silent", "leaves-child"}) {
        CTextWorker::Options options = Fake(role);
        options.timeLimit = 50ms;
        CTextWorker worker(options);
        EXPECT_THAT(Extract(worker, TextFormat::Pdf, "x").problem, HasSubstr("longer than 50 ms")) << role;
    }
}

TEST_F(TextWorker, IsCancelledByTheEvent) {
    m_stop->Set();
    for (const std::string role : {"hangs", "keeps-silent"}) {
        CTextWorker worker(Fake(role));
        const auto result = worker.Extract(OpenBytes("x").Get(), TextFormat::Pdf, *m_stop);
        EXPECT_EQ(result.Error(), ErrorCode::Cancelled) << role;
    }
}

TEST_F(TextWorker, LeavesNoProcessBehind) {
    // Whoever lives on holds the other end of this pipe, and the read does not return.
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const CFileDescriptor out(ends[0]);
    {
        const CFileDescriptor in(ends[1]);
        CTextWorker::Options options = Fake("leaves-child");
        options.timeLimit = 50ms;
        CTextWorker worker(options);
        EXPECT_TRUE(worker.Extract(in.Get(), TextFormat::Pdf, *m_stop).IsOk());
    }
    char byte = 0;
    EXPECT_EQ(::read(out.Get(), &byte, 1), 0);
}

TEST_F(TextWorker, SaysWhenItsProgramCannotBeStarted) {
    CTextWorker worker({.program = (m_folder / "none").string()});
    const auto result = worker.Extract(OpenBytes("x").Get(), TextFormat::Pdf, *m_stop);
    EXPECT_EQ(result.Error(), ErrorCode::FileNotFound);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(TextWorker, IsBoundedInMemory) {
    CTextWorker::Options options = Real();
    options.memoryLimit = 96 << 20;
    CTextWorker worker(options);
    const std::string body = "<w:t>" + std::string(9 << 20, 'a') + "</w:t>";
    const std::string large = MakeWordDocument(body + body + body);
    EXPECT_EQ(Extract(worker, TextFormat::OfficeOpenXml, large).problem, kNoMemory);
    EXPECT_EQ(Extract(worker, TextFormat::Plain, "small").text, "small");
}
#endif

}  // namespace
}  // namespace quorbel
