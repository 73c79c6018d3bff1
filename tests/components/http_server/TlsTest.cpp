#include <gtest/gtest.h>
#include <map>
#include <openssl/pem.h>

#include "components/http_server/Tls.h"
#include "platform/Text.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/service/TestCertificate.h"
#include "tests/support/service/TlsClient.h"

namespace quorbel {
namespace {

using Status = CTlsChannel::Status;

constexpr std::size_t kWhole = ~std::size_t{0};
constexpr int kVersions[] = {TLS1_2_VERSION, TLS1_3_VERSION};

std::shared_ptr<const CTlsCertificate> Load(const CTestCertificate& files) {
    std::wstring reason;
    auto loaded = CTlsCertificate::Load(files.certificate, files.privateKey, reason);
    EXPECT_TRUE(loaded) << ToUtf8(reason);
    return loaded;
}

/// A client and a channel, and the bytes between them.
struct CPair {
    CPair(const CTlsServer& server, CTlsChannel::Choose choose, const CTlsClientOptions& options = {})
        : channel(server, std::move(choose)), client(options) {}

    /// Gives the channel bytes, `step` at a time.
    void Give(std::string_view bytes, std::size_t step = kWhole) {
        while (!bytes.empty()) {
            status = channel.Receive(bytes.substr(0, step), plain, output);
            bytes.remove_prefix(std::min(step, bytes.size()));
        }
    }
    /// Carries bytes to and fro until there are none; false when the client has failed.
    bool Exchange(std::size_t step = kWhole) {
        bool isGood = client.Take({});
        for (std::string sent = client.Output(); !sent.empty() || !output.empty(); sent = client.Output()) {
            Give(sent, step);
            isGood = client.Take(std::exchange(output, {})) && isGood;
        }
        return isGood;
    }

    CTlsChannel channel;
    CTlsClient client;
    Status status = Status::Open;
    std::string plain;
    std::string output;
};

class TlsTest : public testing::Test {
 protected:
    CTlsChannel::Choose Always(const std::shared_ptr<const CTlsCertificate>& certificate) {
        return [certificate](std::string_view) { return certificate; };
    }

    CTemporaryFolder m_folder;
    const CTestCertificate m_files = WriteTestCertificate(m_folder.Path(), "a", {"a.test"});
    const std::shared_ptr<const CTlsCertificate> m_certificate = Load(m_files);
    const CTlsServer m_server;
};

TEST_F(TlsTest, NoByteIsLostHoweverTheCiphertextArrives) {
    for (const int version : kVersions) {
        for (const std::size_t step : {std::size_t{1}, std::size_t{2}, std::size_t{3}, std::size_t{5},
                                       std::size_t{6}, std::size_t{100}, kWhole}) {
            SCOPED_TRACE(testing::Message() << version << " in steps of " << step);
            CPair pair(m_server, Always(m_certificate), {.version = version});
            ASSERT_TRUE(pair.Exchange(step));
            ASSERT_TRUE(pair.channel.IsEstablished());
            EXPECT_EQ(SSL_version(pair.client.Connection()), version);
            // Several records, the last of them the client's goodbye.
            for (const char* part : {"one ", "two ", "three"}) pair.client.Send(part);
            pair.client.Close();
            pair.Give(pair.client.Output(), step);
            EXPECT_EQ(pair.plain, "one two three");
            EXPECT_EQ(pair.status, Status::Closed);
        }
    }
}

TEST_F(TlsTest, LargeTransfersArriveWholeInBothDirections) {
    std::string content(1 << 20, '\0');
    for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * i >> 7);
    for (const int version : kVersions) {
        SCOPED_TRACE(version);
        CPair pair(m_server, Always(m_certificate), {.version = version});
        ASSERT_TRUE(pair.Exchange());
        for (std::string_view rest = content; !rest.empty();) {
            const std::string_view piece = rest.substr(0, 40'961);
            pair.client.Send(piece);
            ASSERT_TRUE(pair.channel.Send(piece, pair.output));
            rest.remove_prefix(piece.size());
        }
        ASSERT_TRUE(pair.Exchange(7'919));
        EXPECT_TRUE(pair.plain == content);
        EXPECT_TRUE(pair.client.Received() == content);
    }
}

TEST_F(TlsTest, NothingIsSentBeforeTheHandshakeNorAfterClose) {
    CPair pair(m_server, Always(m_certificate));
    pair.channel.Close(pair.output);
    EXPECT_FALSE(pair.channel.Send("early", pair.output));
    EXPECT_EQ(pair.output, "");
    ASSERT_TRUE(pair.Exchange());
    EXPECT_TRUE(pair.channel.Send("last", pair.output));
    pair.channel.Close(pair.output);
    const std::string closed = pair.output;
    pair.channel.Close(pair.output);
    EXPECT_FALSE(pair.channel.Send("late", pair.output));
    EXPECT_EQ(pair.output, closed);
    // The client may still send.
    pair.client.Send("more");
    ASSERT_TRUE(pair.Exchange());
    EXPECT_EQ(pair.status, Status::Open);
    EXPECT_EQ(pair.plain, "more");
    EXPECT_EQ(pair.client.Received(), "last");
    EXPECT_TRUE(pair.client.IsClosed());
}

TEST_F(TlsTest, TheNameThatTheClientAsksForChoosesTheCertificate) {
    const auto other = Load(WriteTestCertificate(m_folder.Path(), "b", {"b.test"}));
    const std::map<std::string, std::shared_ptr<const CTlsCertificate>, std::less<>> known{
        {"a.test", m_certificate}, {"b.test", other}, {"", m_certificate}};
    const struct {
        std::string name;
        std::string chosen;  ///< the name asked for, as Choose and the engine see it
        int alert;
    } cases[] = {
        {"a.test", "a.test", 0},
        {"B.TEST", "b.test", 0},
        {"b.test.", "b.test", 0},
        {"", "", 0},
        {"missing.test", "missing.test", SSL_AD_UNRECOGNIZED_NAME},
        {".", "", SSL_AD_UNRECOGNIZED_NAME},
        {".test", "", SSL_AD_UNRECOGNIZED_NAME},
        {"a..test", "", SSL_AD_UNRECOGNIZED_NAME},
        {"a.test..", "", SSL_AD_UNRECOGNIZED_NAME},
        {"a.test:443", "", SSL_AD_UNRECOGNIZED_NAME},
        {"a\\.test", "", SSL_AD_UNRECOGNIZED_NAME},
        {std::string(64, 'a') + ".test", "", SSL_AD_UNRECOGNIZED_NAME},
    };
    for (const int version : kVersions) {
        for (const auto& test : cases) {
            SCOPED_TRACE(test.name);
            CPair pair(m_server,
                       [&](std::string_view name) {
                           const auto found = known.find(name);
                           return found == known.end() ? nullptr : found->second;
                       },
                       {.version = version, .name = test.name});
            EXPECT_EQ(pair.Exchange(), test.alert == 0);
            EXPECT_EQ(pair.client.Alert(), test.alert);
            EXPECT_EQ(pair.channel.ServerName(), test.chosen);
            EXPECT_EQ(pair.status, test.alert == 0 ? Status::Open : Status::Failed);
            if (test.alert != 0) continue;
            X509* shown = SSL_get0_peer_certificate(pair.client.Connection());
            EXPECT_EQ(X509_cmp(shown, known.at(test.chosen)->Leaf()), 0);
        }
    }
}

TEST_F(TlsTest, AMalformedServerNameIsRefused) {
    const std::string name = "a.test";
    const struct {
        int offset;  ///< from the name's first byte
        int add;
    } cases[] = {{-1, 1}, {-1, -1}, {-3, 1}, {-4, 1}, {-4, -1}, {-5, 1}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.offset);
        bool wasAsked = false;
        CPair pair(m_server,
                   [&](std::string_view) {
                       wasAsked = true;
                       return m_certificate;
                   },
                   {.name = name});
        Ignore(pair.client.Take({}));
        std::string hello = pair.client.Output();
        char& changed = hello.at(hello.find(name) + static_cast<std::size_t>(test.offset));
        changed = static_cast<char>(changed + test.add);
        pair.Give(hello);
        EXPECT_EQ(pair.status, Status::Failed);
        EXPECT_FALSE(wasAsked);
        Ignore(pair.client.Take(pair.output));
        EXPECT_EQ(pair.client.Alert(), SSL_AD_DECODE_ERROR);
    }
}

TEST_F(TlsTest, TheProtocolIsAgreedOn) {
    const struct {
        std::string offered;
        std::string selected;
        int alert;
    } cases[] = {
        {"", "", 0},
        {"\x08http/1.1", "http/1.1", 0},
        {"\x02h2\x08http/1.1\x08http/1.0", "http/1.1", 0},
        {"\x02h2", "", SSL_AD_NO_APPLICATION_PROTOCOL},
        {"\x08http/1.0\x09http/1.1x", "", SSL_AD_NO_APPLICATION_PROTOCOL},
    };
    for (const int version : kVersions) {
        for (const auto& test : cases) {
            SCOPED_TRACE(test.offered);
            CPair pair(m_server, Always(m_certificate), {.version = version, .protocols = test.offered});
            EXPECT_EQ(pair.Exchange(), test.alert == 0);
            EXPECT_EQ(pair.client.Alert(), test.alert);
            EXPECT_EQ(pair.channel.ApplicationProtocol(), test.selected);
        }
    }
}

TEST_F(TlsTest, SessionsAreResumedByServerAndNameWhateverTheCertificate) {
    const auto renewed = Load(WriteTestCertificate(m_folder.Path(), "renewed", {"a.test"}));
    const CTlsServer other;
    const struct {
        const CTlsServer& server;
        std::shared_ptr<const CTlsCertificate> certificate;
        const char* name;
        bool isResumed;
    } cases[] = {
        {m_server, m_certificate, "a.test", true},  {m_server, renewed, "a.test", true},
        {m_server, m_certificate, "b.test", false}, {m_server, m_certificate, "", false},
        {other, m_certificate, "a.test", false},
    };
    for (const int version : kVersions) {
        for (const auto& test : cases) {
            SCOPED_TRACE(testing::Message() << version << ' ' << test.name);
            CPair first(m_server, Always(m_certificate), {.version = version, .name = "a.test"});
            ASSERT_TRUE(first.Exchange());
            EXPECT_FALSE(first.channel.IsResumed());
            const CSessionPointer session = first.client.Session();
            CPair second(test.server, Always(test.certificate),
                         {.version = version, .name = test.name, .session = session.get()});
            ASSERT_TRUE(second.Exchange(1));
            EXPECT_EQ(second.channel.IsResumed(), test.isResumed);
            EXPECT_EQ(second.channel.ServerName(), test.name);
        }
    }
}

TEST_F(TlsTest, OldVersionsAndWeakCiphersAreRefused) {
    const struct {
        int version;
        const char* ciphers;
        int alert;
    } cases[] = {
        {TLS1_VERSION, nullptr, SSL_AD_PROTOCOL_VERSION},
        {TLS1_1_VERSION, nullptr, SSL_AD_PROTOCOL_VERSION},
        {TLS1_2_VERSION, "ECDHE-ECDSA-AES128-SHA256", SSL_AD_HANDSHAKE_FAILURE},
        {TLS1_2_VERSION, "AES128-GCM-SHA256", SSL_AD_HANDSHAKE_FAILURE},
        {TLS1_2_VERSION, "ECDHE-ECDSA-CHACHA20-POLY1305", 0},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << test.version << (test.ciphers ? test.ciphers : ""));
        CPair pair(m_server, Always(m_certificate), {.version = test.version, .ciphers = test.ciphers});
        EXPECT_EQ(pair.Exchange(), test.alert == 0);
        EXPECT_EQ(pair.client.Alert(), test.alert);
    }
}

TEST_F(TlsTest, ASecondHelloMustAskForTheSameName) {
    ASSERT_EQ(SSL_CTX_set1_groups_list(m_server.Context(), "P-256"), 1);
    for (const bool isSame : {true, false}) {
        int calls = 0;
        CPair pair(m_server,
                   [&](std::string_view) {
                       ++calls;
                       return m_certificate;
                   },
                   {.name = "a.test", .groups = "X25519:P-256"});
        Ignore(pair.client.Take({}));
        pair.Give(pair.client.Output());
        Ignore(pair.client.Take(std::exchange(pair.output, {})));
        std::string hello = pair.client.Output();
        const std::size_t position = hello.find("a.test");
        ASSERT_NE(position, hello.npos);
        if (!isSame) hello[position] = 'b';
        pair.Give(hello);
        Ignore(pair.client.Take(std::exchange(pair.output, {})));
        EXPECT_EQ(pair.client.Alert(), isSame ? 0 : SSL_AD_ILLEGAL_PARAMETER);
        EXPECT_EQ(pair.status, isSame ? Status::Open : Status::Failed);
        EXPECT_EQ(pair.Exchange() && pair.channel.IsEstablished(), isSame);
        EXPECT_EQ(calls, 1);
    }
}

TEST_F(TlsTest, BytesThatAreNoTlsFailAtOnceAndForGood) {
    const struct {
        std::string bytes;
        bool hasAlert;
    } cases[] = {
        {"GET / HTTP/1.1\r\n\r\n", false},  // no client that speaks TLS would understand one
        {std::string(64, '\0'), false},
        {std::string("\x16\x03\x01\x00\x06\x01\x00\x00\x02XX", 11), true},
        {std::string("\x17\x03\x03\x00\x05hello", 10), true},
        {std::string("\x16\x03\x01\xFF\xFFXX", 7), true},
    };
    for (const auto& test : cases) {
        CPair pair(m_server, Always(m_certificate));
        pair.Give(test.bytes);
        EXPECT_EQ(pair.status, Status::Failed) << testing::PrintToString(test.bytes);
        EXPECT_EQ(pair.output.starts_with("\x15\x03"), test.hasAlert) << testing::PrintToString(test.bytes);
        pair.output.clear();
        EXPECT_FALSE(pair.Exchange() && pair.channel.IsEstablished());
        EXPECT_EQ(pair.status, Status::Failed);
    }
}

TEST_F(TlsTest, ACorruptedRecordEndsTheConnectionAfterWhatCameBeforeIt) {
    for (const int version : kVersions) {
        CPair pair(m_server, Always(m_certificate), {.version = version});
        ASSERT_TRUE(pair.Exchange());
        pair.client.Send("good");
        pair.client.Send("bad");
        std::string sent = pair.client.Output();
        sent.back() = static_cast<char>(sent.back() ^ 1);
        pair.Give(sent);
        EXPECT_EQ(pair.status, Status::Failed);
        EXPECT_EQ(pair.plain, "good");
        EXPECT_FALSE(pair.channel.Send("reply", pair.output));
        EXPECT_FALSE(pair.client.Take(pair.output));
        EXPECT_EQ(pair.client.Alert(), SSL_AD_BAD_RECORD_MAC);
    }
}

TEST_F(TlsTest, RenegotiationIsRefused) {
    CPair pair(m_server, Always(m_certificate), {.version = TLS1_2_VERSION});
    ASSERT_TRUE(pair.Exchange());
    pair.client.Renegotiate();
    EXPECT_FALSE(pair.Exchange());
    EXPECT_EQ(pair.plain, "");
    EXPECT_NE(pair.status, Status::Closed);
}

TEST_F(TlsTest, AFailingChoiceEndsTheHandshakeAlone) {
    CPair pair(m_server,
               [](std::string_view) -> std::shared_ptr<const CTlsCertificate> { throw std::bad_alloc(); });
    EXPECT_FALSE(pair.Exchange());
    EXPECT_EQ(pair.client.Alert(), SSL_AD_INTERNAL_ERROR);
    EXPECT_EQ(pair.status, Status::Failed);
}

TEST_F(TlsTest, OtherErrorsOfTheThreadDoNotCount) {
    CPair pair(m_server, Always(m_certificate));
    ERR_raise(ERR_LIB_SSL, ERR_R_INTERNAL_ERROR);
    ASSERT_TRUE(pair.Exchange(1));
    ERR_raise(ERR_LIB_SSL, ERR_R_INTERNAL_ERROR);
    pair.client.Send("text");
    ERR_raise(ERR_LIB_SSL, ERR_R_INTERNAL_ERROR);
    pair.Give(pair.client.Output(), 1);
    EXPECT_EQ(pair.plain, "text");
    EXPECT_EQ(pair.status, Status::Open);
}

TEST_F(TlsTest, TheWholeChainIsSentOfAFileThatMayHoldTheKeyToo) {
    const std::string file = m_folder / "all.pem";
    WriteFile(file, ReadFile(m_files.certificate) + ReadFile(m_files.privateKey) +
                        ReadFile(WriteTestCertificate(m_folder.Path(), "i", {"i"}).certificate));
    CPair pair(m_server, Always(Load({file, file})));
    ASSERT_TRUE(pair.Exchange());
    EXPECT_EQ(sk_X509_num(SSL_get_peer_cert_chain(pair.client.Connection())), 2);
}

TEST_F(TlsTest, AnUnusablePairOfFilesIsRefusedWithTheFileAndTheReason) {
    const CTestCertificate other = WriteTestCertificate(m_folder.Path(), "b", {"b.test"});
    const std::string certificate = ReadFile(m_files.certificate);
    const std::string folder = m_folder.Path();
    WriteFile(m_folder / "empty", "");
    WriteFile(m_folder / "huge", std::string((1 << 20) + 1, 'x'));
    WriteFile(m_folder / "half", certificate.substr(0, certificate.size() / 2));
    WriteFile(m_folder / "second-half", certificate + certificate.substr(0, certificate.size() / 2));
    std::string wrong = certificate;
    wrong[wrong.size() / 2] = '!';
    WriteFile(m_folder / "wrong", wrong);
    // An RSA key of 512 bits, and a key with a passphrase.
    const CKeyPointer small(EVP_RSA_gen(512));
    const CX509Pointer weak(X509_new());
    X509_set_pubkey(weak.get(), small.get());
    X509_gmtime_adj(X509_getm_notBefore(weak.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(weak.get()), 1000);
    ASSERT_NE(X509_sign(weak.get(), small.get(), EVP_sha256()), 0);
    const auto write = [&](const char* name, const auto& content) {
        const CBioPointer file(BIO_new_file((m_folder / name).c_str(), "w"));
        ASSERT_EQ(content(file.get()), 1);
    };
    write("weak.crt", [&](BIO* file) { return PEM_write_bio_X509(file, weak.get()); });
    write("weak.key", [&](BIO* file) {
        return PEM_write_bio_PrivateKey(file, small.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
    write("locked.key", [&](BIO* file) {
        return PEM_write_bio_PrivateKey(file, small.get(), EVP_aes_128_cbc(), nullptr, 0, nullptr,
                                        const_cast<char*>("secret"));
    });
    const struct {
        std::string certificate;
        std::string key;
        std::string blamed;
        std::string reason;
    } cases[] = {
        {folder + "/missing", m_files.privateKey, "missing", "cannot find the file"},
        {folder, m_files.privateKey, folder, "cannot find the file"},
        {folder + "/empty", m_files.privateKey, "empty", "no certificate"},
        {folder + "/huge", m_files.privateKey, "huge", "1 MiB"},
        {folder + "/half", m_files.privateKey, "half", "cannot be read: "},
        {folder + "/second-half", m_files.privateKey, "second-half", "cannot be read: "},
        {folder + "/wrong", m_files.privateKey, "wrong", "cannot be read: "},
        {m_files.privateKey, m_files.privateKey, "a.key", "no certificate"},
        {m_files.certificate, folder + "/missing", "missing", "cannot find the file"},
        {m_files.certificate, m_files.certificate, "a.crt", "no private key"},
        {m_files.certificate, folder + "/empty", "empty", "no private key"},
        {m_files.certificate, other.privateKey, "b.key", "does not belong"},
        {m_files.certificate, folder + "/locked.key", "locked.key", "passphrase"},
        {folder + "/weak.crt", folder + "/weak.key", "weak.crt", "key too small"},
    };
    for (const auto& test : cases) {
        std::wstring reason;
        EXPECT_FALSE(CTlsCertificate::Load(test.certificate, test.key, reason));
        EXPECT_NE(ToUtf8(reason).find(test.blamed + ' '), std::string::npos) << ToUtf8(reason);
        EXPECT_NE(ToUtf8(reason).find(test.reason), std::string::npos) << ToUtf8(reason);
        EXPECT_TRUE(reason.ends_with(L'.')) << ToUtf8(reason);
    }
}

}  // namespace
}  // namespace quorbel
