#include <nlohmann/json.hpp>

#include "components/search/SearchIndex.h"
#include "components/search/index/IndexWriter.h"
#include "tests/tools/QbctlFixture.h"

namespace quorbel {
namespace {

class QbctlSearchTest : public QbctlTest {
 protected:
    std::filesystem::path IndexFolder() const { return m_root / kSearchFolder; }

    /// An index of two documents, one of which could not be read, and a file that was left out.
    std::unique_ptr<CIndexWriter> MakeIndex() const {
        auto writer = CIndexWriter::Open(IndexFolder()).Value();
        EXPECT_EQ(writer->Begin(), ErrorCode::Success);
        const FolderId folder = writer->Folder("/srv/it's").Value();
        CExtractedText storm;
        storm.text = "The lighthouse lamp was out.";
        storm.title = "Storm";
        CExtractedText plan;
        plan.problem = "it is encrypted";
        EXPECT_EQ(writer->Put(folder, "storm.txt", {28, 0, 0, 1}, storm), ErrorCode::Success);
        EXPECT_EQ(writer->Put(folder, "plan.pdf", {5, 0, 0, 2}, plan), ErrorCode::Success);
        EXPECT_EQ(writer->Skip(folder, "bad\x1b[2J", {}, "its name holds control characters"),
                  ErrorCode::Success);
        EXPECT_EQ(writer->Commit(), ErrorCode::Success);
        return writer;
    }
};

TEST_F(QbctlSearchTest, TheIndexIsShownQuestionedAndMadeAnew) {
    for (const char* command : {"status", "skipped", "rebuild"}) {
        const CRun run = Run({"search", command});
        EXPECT_EQ(run.code, 1) << command;
        EXPECT_NE(run.errors.find("no search index yet"), std::string::npos) << run.errors;
    }
    auto writer = MakeIndex();
    auto status = nlohmann::json::parse(Run({"search", "status", "--json"}).output);
    EXPECT_EQ(status["documents"], 2);
    EXPECT_EQ(status["texts"], 1);
    EXPECT_EQ(status["skipped"], 2);
    EXPECT_EQ(status["followed"], true);
    writer.reset();
    EXPECT_NE(Run({"search", "status"}).output.find("not followed"), std::string::npos);

    const auto found = nlohmann::json::parse(Run({"search", "query", "LAMP", "--json"}).output);
    EXPECT_EQ(found["path"], "/srv/it's/storm.txt");
    EXPECT_EQ(found["title"], "Storm");
    EXPECT_EQ(found["size"], 28);
    EXPECT_NE(Run({"search", "query", "lamp", "--scope", "/srv/it's"}).output.find("storm.txt"),
              std::string::npos);
    EXPECT_EQ(Run({"search", "query", "lamp", "--scope", "/elsewhere"}).output, "");
    EXPECT_EQ(Run({"search", "query", "lamp", "--max", "0"}).code, 2);

    const std::string skipped = Run({"search", "skipped"}).output;
    EXPECT_NE(skipped.find("/srv/it's/plan.pdf: it is encrypted"), std::string::npos) << skipped;
    EXPECT_EQ(skipped.find('\x1b'), std::string::npos);
    EXPECT_EQ(Run({"search", "skipped", "--json"}).output.find('\x1b'), std::string::npos);

    EXPECT_EQ(Run({"search", "rebuild"}).code, 0);
    EXPECT_TRUE(std::filesystem::exists(IndexFolder() / ISearchIndex::kRebuildRequest));
}

}  // namespace
}  // namespace quorbel
