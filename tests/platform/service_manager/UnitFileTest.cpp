#include <array>
#include <cstdio>

#include "platform/service_manager/UnitFile.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

struct CRun {
    int status;
    std::string output;
};

CRun RunShell(const std::string& command) {
    CRun run{-1, {}};
    FILE* const output = ::popen((command + " 2>&1").c_str(), "r");
    if (!output) return run;
    std::array<char, 4096> buffer{};
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), output))
        run.output.append(buffer.data(), count);
    run.status = ::pclose(output);
    return run;
}

/// The unit of a program that there is, in a folder of its own.
class UnitFileTest : public ::testing::Test {
 protected:
    UnitFileTest() {
        const auto text = UnitFileText({L"Served", L"Served", "/bin/true"});
        EXPECT_EQ(CreateUnitFile(m_folder.Path(), "Served.service", text.Value()), ErrorCode::Success);
    }
    void SetUp() override {
        if (RunShell("systemd-analyze --version").status != 0) GTEST_SKIP() << "no systemd-analyze here";
    }
    std::string File() const { return (m_folder / "Served.service").string(); }

    const CTemporaryFolder m_folder;
};

TEST_F(UnitFileTest, IsWhatSystemdTakesWithoutComplaint) {
    const CRun run = RunShell("systemd-analyze verify --man=no " + File());
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.output, ::testing::Not(::testing::HasSubstr("Served.service:")));
}

TEST_F(UnitFileTest, LeavesTheServiceLittleThatItCouldDoHarmWith) {
    const CRun run = RunShell("systemd-analyze security --no-pager --offline=true --threshold=20 " + File());
    EXPECT_EQ(run.status, 0) << run.output;
}

TEST(UnitFileText, TakesNoFolderAwayInWhichTheProgramIs) {
    const std::tuple<const char*, const char*, const char*> kPrograms[] = {
        {"/usr/lib/quorbel/QBHTTPService", "yes", "yes"},
        {"/homes/QBHTTPService", "yes", "yes"},
        {"/srv/home/QBHTTPService", "yes", "yes"},
        {"/home/anna/QBHTTPService", "read-only", "yes"},
        {"/root/quorbel/QBHTTPService", "read-only", "yes"},
        {"/run/user/0/QBHTTPService", "read-only", "yes"},
        {"/tmp/quorbel/QBHTTPService", "yes", "no"},
        {"/var/tmp/QBHTTPService", "yes", "no"},
    };
    for (const auto& [program, home, temporary] : kPrograms) {
        const auto text = UnitFileText({L"Served", L"ProtectHome=yes", program});
        ASSERT_TRUE(text.IsOk());
        EXPECT_THAT(text.Value(), ::testing::HasSubstr("\nProtectHome=" + std::string(home) + "\n"))
            << program;
        EXPECT_THAT(text.Value(), ::testing::HasSubstr("\nPrivateTmp=" + std::string(temporary) + "\n"))
            << program;
    }
}

TEST(UnitFileText, TakesADisplayNameForNoSetting) {
    const auto text = UnitFileText({L"Served", L"Type=notify", "/bin/true"});
    ASSERT_TRUE(text.IsOk());
    EXPECT_THAT(text.Value(), ::testing::HasSubstr("[Service]\nType=notify\nExecStart=\"/bin/true\"\n"));
}

TEST_F(UnitFileTest, SetsNothingThatAnAdministratorHasNotAskedFor) {
    const std::string text = ReadFile(File());
    for (const char* setting :
         {"\nRestart", "\nUser=", "\nGroup=", "\nRequires=", "\nAfter=", "\nBefore=", "\nWants=", "\nLimit",
          "\nMemoryMax", "\nTasksMax", "\nOnFailure", "\nStartLimit", "\nTimeout", "\nDocumentation"})
        EXPECT_THAT(text, ::testing::Not(::testing::HasSubstr(setting)));
}

}  // namespace
}  // namespace quorbel
