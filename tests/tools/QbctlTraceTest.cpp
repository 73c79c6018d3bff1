#include <nlohmann/json.hpp>

#include "LibService/LibServiceAPI.h"
#include "LibService/WorkItems.h"
#include "tests/support/HandClock.h"
#include "tests/tools/QbctlFixture.h"

namespace quorbel {
namespace {

using Json = nlohmann::json;

constexpr std::uint32_t kRunRoutine = 0x00010001;
constexpr std::uint32_t kMethodRefused = 0xC00100CF;

class QbctlTrace : public QbctlTest, public CTraceLoggable {
 public:
    const char* TraceName() const override { return m_name; }

 protected:
    /// The file that a run of a service of that name leaves.
    std::string MakeFile(const char* name, const char* object,
                         const std::function<void(CServiceLogger&)>& trace) {
        m_name = object;
        const std::filesystem::path folder = m_folder / name;
        {
            CServiceLogger logger(name, m_clock);
            EXPECT_TRUE(logger.LoadMessages(QUORBEL_PROGRAMS "/TrcQBHTTPService.dll").IsOk());
            EXPECT_TRUE(logger.StartSaving(folder).IsOk());
            trace(logger);
            EXPECT_TRUE(logger.SaveLastRecords().IsOk());
        }
        return std::filesystem::directory_iterator(folder)->path();
    }
    static std::vector<Json> Lines(const std::string& output) {
        std::vector<Json> lines;
        std::istringstream stream(output);
        for (std::string line; std::getline(stream, line);) lines.push_back(Json::parse(line));
        return lines;
    }

    CHandClock m_clock;
    const char* m_name = "";
};

TEST_F(QbctlTrace, ShowsTheRecordsOfSeveralFilesInTheOrderOfTime) {
    using namespace std::chrono_literals;
    const auto pause = [this] { m_clock.Turn(10s); };
    const std::string first = MakeFile("First", "HTTP Server", [&](CServiceLogger& logger) {
        logger.Trace(*this, kRunRoutine);
        pause();
        logger.Trace(*this, kMethodRefused, {L"PUT", L"/\u00e9\x1F600"});
        pause();
        logger.Trace(*this, 0x00010777);
    });
    m_clock.Turn(-15s);
    const std::string second =
        MakeFile("Second", "Other", [&](CServiceLogger& logger) { logger.Trace(*this, kRunRoutine); });
    const CRun shown = Run({"trace", "show", first, second, "--json"});
    EXPECT_EQ(shown.code, 0) << shown.errors;
    const auto lines = Lines(shown.output);
    ASSERT_EQ(lines.size(), 4U);
    const char* const objects[] = {"HTTP Server", "Other", "HTTP Server", "HTTP Server"};
    for (std::size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(lines[i]["object"], objects[i]) << i;
    EXPECT_EQ(lines[2]["number"], 1);
    EXPECT_EQ(lines[2]["id"], "0xC00100CF");
    EXPECT_EQ(lines[2]["severity"], "error");
    EXPECT_EQ(lines[2]["text"], "Method PUT refused for /\u00e9\U0001F600");
    EXPECT_EQ(lines[2]["args"], Json({"PUT", "/\u00e9\U0001F600"}));
    EXPECT_LT(lines[1]["time"], lines[2]["time"]);

    const std::pair<std::vector<std::string>, std::size_t> filters[] = {
        {{"--object", "Other"}, 1},
        {{"--object", "Other", "--object", "HTTP Server"}, 4},
        {{"--id", "00010001"}, 2},
        {{"--id", "0xC00100CF", "--id", "0x00010777"}, 2},
        {{"--severity", "warning"}, 1},
        {{"--from", "2300-01-01"}, 0},
        {{"--to", "2300-01-01 00:00:00Z"}, 4},
        {{"--from", lines[2]["time"].get<std::string>().substr(0, 19) + "Z"}, 2},
    };
    for (const auto& [filter, count] : filters) {
        std::vector<std::string> words = {"trace", "show", first, second, "--json"};
        words.insert(words.end(), filter.begin(), filter.end());
        EXPECT_EQ(Lines(Run(words).output).size(), count) << ::testing::PrintToString(filter);
    }
    const std::string text = Run({"trace", "show", first}).output;
    EXPECT_NE(text.find("error  HTTP Server: Method PUT refused for /\u00e9"), text.npos) << text;
    EXPECT_NE(text.find("success  HTTP Server: 0x00010777"), text.npos) << text;
}

TEST_F(QbctlTrace, SaysWhereADamagedFileStopsAndWhatIsWrongWithItsArguments) {
    const std::string path =
        MakeFile("Service", "HTTP Server", [&](CServiceLogger& logger) { logger.Trace(*this, kRunRoutine); });
    const std::string whole = ReadFile(path);
    WriteFile(m_folder / "cut", whole + "12345678rubbish");
    const CRun cut = Run({"trace", "show", m_folder / "cut"});
    EXPECT_EQ(cut.code, 1);
    EXPECT_NE(cut.output.find("Run routine begins"), std::string::npos);
    EXPECT_NE(cut.errors.find("block 2 at byte " + std::to_string(whole.size())), std::string::npos)
        << cut.errors;
    EXPECT_EQ(Run({"trace", "show", m_folder / "missing", path}).code, 1);
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{"trace", "show"},
                                               {"trace", "show", path, "--id", "xyz"},
                                               {"trace", "show", path, "--severity", "bad"},
                                               {"trace", "show", path, "--from", "yesterday"},
                                               {"trace", "follow", "--lines", "-1"}})
        EXPECT_EQ(Run(words).code, 2) << words.back();
}

TEST_F(QbctlTrace, FollowsARunningServiceUntilItEnds) {
    EXPECT_EQ(Run({"trace", "follow"}).code, 1);
    m_name = "HTTP Server";
    std::filesystem::create_directories(m_root / "pipe");
    CServiceLogger logger("QBHTTPService");
    logger.Trace(*this, kRunRoutine);
    logger.Trace(*this, 0x00010002);
    const auto threads = CThreadSet::Create(SystemClock()).Value();
    const auto work = CWorkItems::Create(*threads).Value();
    CServiceAPIListener listener(
        m_root / "pipe", L"QBHTTPService", "", logger, SystemClock(),
        [&](std::unique_ptr<CServiceAPIConnection> connection) {
            const std::shared_ptr<CServiceAPIConnection> shared = std::move(connection);
            return work->Run([shared](CEvent& stop) { return shared->Serve(stop); }, "");
        });
    ASSERT_TRUE(work->Run([&](CEvent& stop) { return listener.Run(stop); }, "APIServer").IsOk());
    CSubprocess follow("qbctl", {"trace", "follow", "--json", "--lines", "1"},
                       {{"QUORBEL_ROOT", m_root.string()}}, m_folder / "output", m_folder / "errors");
    const auto shown = [this] { return Lines(ReadFile(m_folder / "output")).size(); };
    while (shown() < 1) std::this_thread::yield();
    logger.Trace(*this, kRunRoutine);
    while (shown() < 2) std::this_thread::yield();
    work->Stop();
    work->Wait();
    EXPECT_EQ(follow.Wait(), 1);
    EXPECT_NE(ReadFile(m_folder / "errors").find("The service has ended"), std::string::npos);
    const auto lines = Lines(ReadFile(m_folder / "output"));
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0]["number"], 1);
    EXPECT_EQ(lines[1]["text"], "Run routine begins");
    EXPECT_EQ(lines[1]["object"], "HTTP Server");
}

}  // namespace
}  // namespace quorbel
