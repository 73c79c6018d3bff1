#include <nlohmann/json.hpp>
#include <sstream>

#include "components/certificates/CertificateBinding.h"
#include "components/certificates/CertificateInfo.h"
#include "components/certificates/SelfSignedCertificate.h"
#include "components/certificates/TlsCertificate.h"
#include "tests/support/service/TestCertificate.h"
#include "tests/tools/QbctlFixture.h"

namespace quorbel {
namespace {

using std::filesystem::perms;

class QbctlCertTest : public QbctlTest {
 protected:
    /// The bindings as `cert list --json` shows them.
    std::vector<nlohmann::json> List() {
        std::vector<nlohmann::json> bindings;
        std::istringstream lines(Run({"cert", "list", "--json"}).output);
        for (std::string line; std::getline(lines, line);) bindings.push_back(nlohmann::json::parse(line));
        return bindings;
    }
    static perms ModeOf(const std::filesystem::path& path) {
        return std::filesystem::status(path).permissions();
    }
};

TEST_F(QbctlCertTest, ACertificateIsBoundListedAndRemoved) {
    const CTestCertificate files = WriteTestCertificate(m_folder.Path(), "a", {"a.test", "127.0.0.1"});
    std::filesystem::permissions(files.privateKey, perms(0600));
    const auto relative = std::filesystem::relative(files.certificate).string();
    const CRun bound =
        Run({"cert", "bind", "A.test:443", "--certificate", relative, "--key", files.privateKey});
    ASSERT_EQ(bound.code, 0) << bound.errors;
    EXPECT_EQ(bound.errors, "");
    auto bindings = List();
    ASSERT_EQ(bindings.size(), 1u);
    EXPECT_EQ(bindings[0]["name"], "a.test:443");
    EXPECT_EQ(bindings[0]["subject"], "CN = a.test");
    EXPECT_EQ(bindings[0]["names"], (nlohmann::json{"a.test", "127.0.0.1"}));
    EXPECT_EQ(bindings[0]["certificateFile"], files.certificate);
    EXPECT_EQ(bindings[0]["privateKeyFile"], files.privateKey);
    EXPECT_TRUE(bindings[0]["problem"].is_null()) << bindings[0];

    WriteFile(files.certificate, "broken");
    EXPECT_NE(List().at(0)["problem"].dump().find(files.certificate), std::string::npos);
    EXPECT_NE(Run({"cert", "list"}).output.find("problem=The certificate file"), std::string::npos);
    EXPECT_EQ(Run({"cert", "remove", "a.TEST:443"}).code, 0);
    EXPECT_TRUE(List().empty());
    EXPECT_TRUE(std::filesystem::exists(files.privateKey));
}

TEST_F(QbctlCertTest, FilesThatDoNotBelongTogetherAreNotBound) {
    const CTestCertificate a = WriteTestCertificate(m_folder.Path(), "a", {"a.test"});
    const CTestCertificate b = WriteTestCertificate(m_folder.Path(), "b", {"b.test"});
    const auto bind = [&](const std::string& certificate, const std::string& key) {
        return Run({"cert", "bind", "a.test:443", "--certificate", certificate, "--key", key});
    };
    ASSERT_EQ(bind(a.certificate, a.privateKey).code, 0);
    EXPECT_EQ(bind(b.certificate, a.privateKey).code, 1);
    EXPECT_EQ(bind(b.certificate, b.certificate).code, 1);
    EXPECT_EQ(List().at(0)["certificateFile"], a.certificate);
}

TEST_F(QbctlCertTest, WhatIsDoubtfulIsSaidAndBoundAllTheSame) {
    const CTestCertificate files = WriteTestCertificate(m_folder.Path(), "a", {"a.test", "*.b.test", "::1"});
    const struct {
        const char* target;
        int mode;
        const char* warning;
    } cases[] = {
        {"a.test:443", 0600, ""},
        {"x.b.test:443", 0600, ""},
        {"[::1]:443", 0600, ""},
        {"*:443", 0600, ""},
        {"x.test:443", 0600, "name x.test"},
        {"[::2]:443", 0600, "name ::2"},
        {"a.test:444", 0644, "chmod o-r"},
    };
    for (const auto& test : cases) {
        std::filesystem::permissions(files.privateKey, perms(test.mode));
        const CRun run =
            Run({"cert", "bind", test.target, "--certificate", files.certificate, "--key", files.privateKey});
        EXPECT_EQ(run.code, 0) << run.errors;
        EXPECT_EQ(run.errors.empty(), *test.warning == '\0') << run.errors;
        EXPECT_NE(run.errors.find(test.warning), std::string::npos) << run.errors;
    }
    std::wstring reason;
    const std::string names[] = {"a.test"};
    const auto expired = CreateSelfSignedCertificate(names, -1, reason);
    ASSERT_TRUE(expired);
    WriteFile(files.certificate, expired->certificate);
    WriteFile(files.privateKey, expired->privateKey);
    const CRun run =
        Run({"cert", "bind", "a.test:443", "--certificate", files.certificate, "--key", files.privateKey});
    EXPECT_EQ(run.code, 0);
    EXPECT_NE(run.errors.find("valid from"), std::string::npos) << run.errors;
}

TEST_F(QbctlCertTest, ACreatedCertificateIsPrivateUsableAndBound) {
    const CRun run =
        Run({"cert", "create", "A.test:8443", "--name", "*.b.test", "--name", "[::1]", "--days", "9"});
    ASSERT_EQ(run.code, 0) << run.errors;
    const auto folder = m_root / "certificates";
    EXPECT_EQ(ModeOf(folder), perms(0700));
    EXPECT_EQ(ModeOf(folder / "a.test.key"), perms(0600));
    const auto bindings = List();
    ASSERT_EQ(bindings.size(), 1u);
    EXPECT_EQ(bindings[0]["name"], "a.test:8443");
    EXPECT_TRUE(bindings[0]["problem"].is_null()) << bindings[0];

    std::wstring reason;
    const auto loaded = CTlsCertificate::Load(folder / "a.test.crt", folder / "a.test.key", reason);
    ASSERT_TRUE(loaded) << ToUtf8(reason);
    for (const char* host : {"a.test", "x.b.test", "::1"})
        EXPECT_TRUE(IsCertificateFor(loaded->Leaf(), host)) << host;
    EXPECT_FALSE(IsCertificateFor(loaded->Leaf(), "b.test"));
    int days = 0;
    int seconds = 0;
    ASSERT_EQ(ASN1_TIME_diff(&days, &seconds, X509_get0_notBefore(loaded->Leaf()),
                             X509_get0_notAfter(loaded->Leaf())),
              1);
    EXPECT_EQ(days, 9);
}

TEST_F(QbctlCertTest, NoFileIsReplacedAndNothingIsLeftHalfMade) {
    const std::string out = m_folder / "out";
    const auto create = [&] { return Run({"cert", "create", "a.test:443", "--out", out}); };
    const auto countFiles = [&] {
        return std::distance(std::filesystem::directory_iterator(out), std::filesystem::directory_iterator());
    };
    for (const char* taken : {"a.test.crt", "a.test.key"}) {
        std::filesystem::remove_all(out);
        WriteFile(out + "/" + taken, "mine");
        EXPECT_EQ(create().code, 1);
        EXPECT_EQ(ReadFile(out + "/" + taken), "mine");
        EXPECT_EQ(countFiles(), 1);
    }
    // A link that leads nowhere is taken as well.
    std::filesystem::remove_all(out);
    std::filesystem::create_directory(out);
    std::filesystem::create_symlink(m_folder / "elsewhere", out + "/a.test.key");
    EXPECT_EQ(create().code, 1);
    EXPECT_FALSE(std::filesystem::exists(m_folder / "elsewhere"));
    std::filesystem::remove(out + "/a.test.key");
    // A registry that cannot be opened.
    EXPECT_TRUE(List().empty());
    std::filesystem::permissions(m_root / "registry", perms(0702));
    EXPECT_EQ(create().code, 1);
    EXPECT_EQ(countFiles(), 0);
    std::filesystem::permissions(m_root / "registry", perms(0700));
    EXPECT_TRUE(List().empty());
    EXPECT_EQ(create().code, 0);
}

}  // namespace
}  // namespace quorbel
