#include <atomic>
#include <gtest/gtest.h>
#include <thread>

#include "components/http_server/Certificates.h"
#include "platform/Text.h"
#include "platform/registry/SqliteRegistry.h"
#include "tests/support/FaultyRegistry.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/service/TestCertificate.h"

namespace quorbel {
namespace {

class CertificatesTest : public testing::Test {
 protected:
    void Bind(const std::wstring& name, const CTestCertificate& files) {
        SetValue(name, kCertificateFileValue, FromUtf8(files.certificate));
        SetValue(name, kPrivateKeyFileValue, FromUtf8(files.privateKey));
    }
    void SetValue(const std::wstring& name, std::wstring_view value, const std::wstring& text) {
        const auto key = m_localMachine->Create(KeyOf(name));
        ASSERT_EQ(key.Value()->Set(value, CValue::FromText(text)), ErrorCode::Success);
    }
    void Unbind(const std::wstring& name) {
        ASSERT_EQ(m_localMachine->DeleteTree(KeyOf(name)), ErrorCode::Success);
    }
    static std::wstring KeyOf(const std::wstring& name) {
        return std::wstring(kCertificateBindingsKey) + L"\\" + name;
    }
    CTestCertificate Write(const std::string& stem) {
        return WriteTestCertificate(m_folder.Path(), stem, {stem + ".test"});
    }
    /// Follows a.test:443, bound to `files`.
    std::shared_ptr<const CCertificates::CBinding> Follow(const CTestCertificate& files) {
        Bind(L"a.test:443", files);
        auto binding = m_certificates.Follow("a.test", 443, m_reason);
        EXPECT_TRUE(binding) << ToUtf8(m_reason);
        return binding;
    }
    /// Whether that is the certificate in the file.
    static bool IsShown(const CCertificates::CBinding& binding, const CTestCertificate& files) {
        std::wstring reason;
        const auto expected = CTlsCertificate::Load(files.certificate, files.privateKey, reason);
        EXPECT_TRUE(expected) << ToUtf8(reason);
        return X509_cmp(CCertificates::Current(binding)->Leaf(), expected->Leaf()) == 0;
    }

    CTemporaryFolder m_folder;
    CFaultyRegistry m_registry{OpenSqliteRegistry(m_folder.Path()).Value()};
    const std::shared_ptr<IKey> m_localMachine = m_registry.LocalMachine();
    std::vector<std::wstring> m_reports;
    CCertificates m_certificates{m_localMachine,
                                 [this](const std::wstring& report) { m_reports.push_back(report); }};
    std::wstring m_reason;
};

TEST_F(CertificatesTest, AHostWithoutAUsableBindingIsRefusedWithTheReason) {
    const CTestCertificate files = Write("a");
    const struct {
        std::wstring certificate;
        std::wstring key;
        std::string reason;
    } cases[] = {
        {L"", L"", "qbctl cert bind a.test:443 --certificate FILE --key FILE"},
        {L"relative.crt", FromUtf8(files.privateKey), "CertificateFile"},
        {FromUtf8(files.certificate), L"", "PrivateKeyFile"},
        {FromUtf8(files.certificate), FromUtf8(files.certificate), "no private key"},
    };
    for (const auto& test : cases) {
        if (!test.certificate.empty()) SetValue(L"a.test:443", kCertificateFileValue, test.certificate);
        if (!test.key.empty()) SetValue(L"a.test:443", kPrivateKeyFileValue, test.key);
        EXPECT_FALSE(m_certificates.Follow("a.test", 443, m_reason));
        EXPECT_NE(ToUtf8(m_reason).find(test.reason), std::string::npos) << ToUtf8(m_reason);
        if (!test.certificate.empty()) Unbind(L"a.test:443");
    }
    Bind(L"a.test:443", files);
    EXPECT_FALSE(m_certificates.Follow("a.test", 444, m_reason));
    EXPECT_FALSE(m_certificates.Follow("x\\..\\a.test", 443, m_reason));
    EXPECT_TRUE(m_certificates.Follow("A.TEST", 443, m_reason)) << ToUtf8(m_reason);
    m_registry.Faults().Fail(RegistryOperation::Values, ErrorCode::Busy);
    EXPECT_FALSE(m_certificates.Follow("a.test", 443, m_reason));
    EXPECT_TRUE(m_reports.empty());
}

TEST_F(CertificatesTest, NewFilesAreTakenUpAndUnchangedOnesLeftAlone) {
    const CTestCertificate files = Write("a");
    const auto binding = Follow(files);
    const auto first = CCertificates::Current(*binding);
    m_certificates.Refresh();
    EXPECT_EQ(CCertificates::Current(*binding), first);
    Write("a");
    EXPECT_EQ(CCertificates::Current(*binding), first);
    m_certificates.Refresh();
    EXPECT_NE(CCertificates::Current(*binding), first);
    EXPECT_TRUE(IsShown(*binding, files));
    EXPECT_TRUE(m_reports.empty());
    // A look at the files is all that an unchanged registry costs.
    const int before = m_registry.Faults().Calls(RegistryOperation::Values);
    for (int i = 0; i < 3; ++i) m_certificates.Refresh();
    EXPECT_EQ(m_registry.Faults().Calls(RegistryOperation::Values), before);
}

TEST_F(CertificatesTest, ABrokenFileLeavesTheLastGoodCertificateAndIsReportedOncePerState) {
    const CTestCertificate files = Write("a");
    const auto binding = Follow(files);
    const auto first = CCertificates::Current(*binding);
    const std::string good = ReadFile(files.certificate);
    const auto refreshTwice = [&] {
        m_reports.clear();
        m_certificates.Refresh();
        m_certificates.Refresh();
        EXPECT_EQ(CCertificates::Current(*binding), first);
        return m_reports;
    };
    for (const std::size_t size : {std::size_t{0}, std::size_t{100}, good.size() - 30}) {
        WriteFile(files.certificate, good.substr(0, size));
        const auto reports = refreshTwice();
        ASSERT_EQ(reports.size(), 1u) << size;
        EXPECT_NE(ToUtf8(reports[0]).find(files.certificate), std::string::npos) << ToUtf8(reports[0]);
    }
    std::filesystem::remove(files.privateKey);
    EXPECT_EQ(refreshTwice().size(), 1u);
    // One file of a new pair, then the other.
    const CTestCertificate other = Write("b");
    std::filesystem::rename(other.certificate, files.certificate);
    EXPECT_EQ(refreshTwice().size(), 1u);
    std::filesystem::rename(other.privateKey, files.privateKey);
    m_reports.clear();
    m_certificates.Refresh();
    EXPECT_TRUE(IsShown(*binding, files));
    EXPECT_TRUE(m_reports.empty());
}

TEST_F(CertificatesTest, ChangedValuesAreFollowedAndUselessOnesReportedOnce) {
    const auto binding = Follow(Write("a"));
    m_certificates.Refresh();
    const CTestCertificate other = Write("b");
    Bind(L"A.test:443", other);
    m_certificates.Refresh();
    EXPECT_TRUE(IsShown(*binding, other));
    SetValue(L"a.test:443", kCertificateFileValue, L"relative");
    for (int i = 0; i < 3; ++i) {
        SetValue(L"a.test:443", L"other", std::to_wstring(i));
        m_certificates.Refresh();
    }
    EXPECT_EQ(m_reports.size(), 1u);
    EXPECT_TRUE(IsShown(*binding, other));
}

TEST_F(CertificatesTest, ADeletedBindingKeepsItsCertificateUntilItIsBoundAgain) {
    const CTestCertificate files = Write("a");
    const auto binding = Follow(files);
    m_certificates.Refresh();
    // With the last binding the key that is watched goes as well.
    ASSERT_EQ(m_localMachine->DeleteTree(kCertificateBindingsKey), ErrorCode::Success);
    m_certificates.Refresh();
    EXPECT_TRUE(IsShown(*binding, files));
    EXPECT_FALSE(m_certificates.Follow("a.test", 443, m_reason));
    const CTestCertificate other = Write("b");
    Bind(L"a.test:443", other);
    m_certificates.Refresh();
    EXPECT_TRUE(IsShown(*binding, other));
    EXPECT_TRUE(m_reports.empty());
}

TEST_F(CertificatesTest, AFailingRegistryIsAskedAgain) {
    const auto binding = Follow(Write("a"));
    const CTestCertificate other = Write("b");
    m_certificates.Refresh();
    for (const RegistryOperation operation :
         {RegistryOperation::Open, RegistryOperation::Values, RegistryOperation::Watch}) {
        const CTestCertificate next = Write("next");
        Bind(L"a.test:443", other);
        m_certificates.Refresh();
        Bind(L"a.test:443", next);
        m_registry.Faults().Fail(operation, ErrorCode::Busy, 0);
        m_certificates.Refresh();
        m_registry.Faults().FailNothing();
        m_certificates.Refresh();
        EXPECT_TRUE(IsShown(*binding, next)) << static_cast<int>(operation);
    }
    EXPECT_TRUE(m_reports.empty());
}

TEST_F(CertificatesTest, ABindingIsSharedAndLetGoWithItsLastFollower) {
    const CTestCertificate files = Write("a");
    auto binding = Follow(files);
    WriteFile(files.certificate, "broken");
    auto second = m_certificates.Follow("A.TEST", 443, m_reason);
    EXPECT_EQ(second, binding);
    EXPECT_EQ(m_reports.size(), 1u);
    binding.reset();
    second.reset();
    EXPECT_FALSE(m_certificates.Follow("a.test", 443, m_reason));
    const int before = m_registry.Faults().Calls(RegistryOperation::Values);
    m_certificates.Refresh();
    EXPECT_EQ(m_registry.Faults().Calls(RegistryOperation::Values), before);
}

TEST_F(CertificatesTest, OthersReadAndFollowWhileCertificatesChange) {
    const CTestCertificate files = Write("a");
    const auto binding = Follow(files);
    std::atomic<bool> isOver = false;
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            while (!isOver) {
                std::wstring reason;
                if (!CCertificates::Current(*binding)->Leaf()) ++failures;
                if (!m_certificates.Follow("a.test", 443, reason)) ++failures;
            }
        });
    }
    for (int i = 0; i < 20; ++i) {
        const CTestCertificate next = Write("next" + std::to_string(i % 2));
        Bind(L"a.test:443", files);
        m_certificates.Refresh();
        std::filesystem::rename(next.certificate, files.certificate);
        std::filesystem::rename(next.privateKey, files.privateKey);
        m_certificates.Refresh();
    }
    isOver = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_TRUE(IsShown(*binding, files));
}

}  // namespace
}  // namespace quorbel
