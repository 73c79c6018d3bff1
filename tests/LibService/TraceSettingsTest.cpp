#include "LibService/TraceSettings.h"
#include "platform/registry/SqliteRegistry.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

class TraceSettings : public testing::Test {
 protected:
    CTemporaryFolder m_root;
    const std::unique_ptr<IKey> m_localMachine = [this] {
        std::filesystem::create_directory(m_root / "registry");
        return OpenSqliteRegistry(m_root / "registry").Value()->LocalMachine();
    }();
    CTraceSettings Read() { return CTraceSettings::Read(*m_localMachine, L"Test Service", "/root"); }
};

TEST_F(TraceSettings, AreTheDefaultsWhereTheRegistrySaysNothingOrNonsense) {
    const auto expectDefaults = [this] {
        const CTraceSettings settings = Read();
        EXPECT_EQ(settings.folder, "/root/QuorbelLog");
        EXPECT_TRUE(settings.mask.ForcesSaving(0xC0010001) && !settings.mask.Keeps(0x40010000));
        EXPECT_EQ(settings.span, 10'000U);
        EXPECT_EQ(settings.administrators, "");
    };
    expectDefaults();
    const auto key = m_localMachine->Create(L"Software\\Quorbel\\Test Service").Value();
    expectDefaults();
    Ignore(key->Set(L"Log file directory", CValue::FromNumber32(1)));
    Ignore(key->Set(L"Log level", CValue::FromText(L"5")));
    Ignore(key->Set(L"Log size", CValue::FromNumber64(5)));
    Ignore(key->Set(L"Administrators", CValue::FromNumber32(1)));
    expectDefaults();
}

TEST_F(TraceSettings, AreReadFromTheRegistry) {
    const auto key = m_localMachine->Create(L"Software\\Quorbel\\Test Service").Value();
    Ignore(key->Set(L"Log level", CValue::FromNumber32(0x10)));
    Ignore(key->Set(L"Log size", CValue::FromNumber32(0)));
    Ignore(key->Set(L"Administrators", CValue::FromText(L"adm")));
    EXPECT_TRUE(Read().mask.Keeps(0x40010000));
    EXPECT_EQ(Read().span, 0U);
    EXPECT_EQ(Read().administrators, "adm");
    const std::pair<const wchar_t*, const char*> folders[] = {
        {L"\\QuorbelLog", "/root/QuorbelLog"}, {L"/var/log/q", "/var/log/q"},   {L"\\var\\log", "/var/log"},
        {L"traces", "/root/traces"},           {L"%HOME%/x", "/root/%HOME%/x"}, {L"", "/root/QuorbelLog"}};
    for (const auto& [stored, folder] : folders) {
        Ignore(key->Set(L"Log file directory", CValue::FromText(stored, ValueType::ExpandableText)));
        EXPECT_EQ(Read().folder, folder);
    }
}

TEST_F(TraceSettings, FindTheMessagesBesideTheProgramOrWhereTheProductIsInstalled) {
    CServiceLogger trace;
    const auto load = [&] {
        return LoadTraceModule(trace, *m_localMachine, L"QBHTTPService", m_root.Path());
    };
    EXPECT_EQ(load().Error()->GetCode(), ToNumber(ErrorCode::FileNotFound));
    const auto key = m_localMachine->Create(L"SOFTWARE\\Quorbel\\COM API").Value();
    Ignore(key->Set(L"installed", CValue::FromText(L"" QUORBEL_PROGRAMS)));
    EXPECT_FALSE(load().IsOk());  // no separator is added
    Ignore(key->Set(L"installed", CValue::FromText(L"" QUORBEL_PROGRAMS "/")));
    EXPECT_TRUE(load().IsOk());
    WriteFile(m_root / "TrcQBHTTPService.dll", "no catalogue");
    Ignore(key->DeleteValue(L"installed"));
    EXPECT_EQ(load().Error()->GetCode(), ToNumber(ErrorCode::BadFileType));
}

}  // namespace
}  // namespace quorbel
