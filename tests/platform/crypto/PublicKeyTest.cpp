#include <openssl/err.h>

#include "platform/crypto/Digest.h"
#include "platform/crypto/PublicKey.h"
#include "tests/support/SoftKey.h"

namespace quorbel {
namespace {

using Kind = CSoftKey::Kind;

std::string Integer(std::string_view content) {
    return std::string("\x02") + static_cast<char>(content.size()) + std::string(content);
}

std::string Sequence(std::string_view content) {
    return std::string("\x30") + static_cast<char>(content.size()) + std::string(content);
}

std::string WithBitFlipped(std::string bytes, std::size_t bit) {
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ 1 << bit % 8);
    return bytes;
}

CPublicKey PublicHalf(const CSoftKey& key) {
    return key.IsRsa() ? CPublicKey::FromRsa(key.Modulus(), key.Exponent()).Value()
                       : CPublicKey::FromP256(key.X(), key.Y()).Value();
}

TEST(EcdsaSignature, IsReadFromDerIntoTwoPaddedIntegers) {
    const std::string high = "\x80" + std::string(31, 'h');
    const std::pair<std::string, std::string> cases[] = {
        {Sequence(Integer("\x01") + Integer("\x7F")),
         std::string(31, '\0') + "\x01" + std::string(31, '\0') + "\x7F"},
        {Sequence(Integer(std::string("\0", 1) + high) + Integer(std::string(32, 's'))),
         high + std::string(32, 's')},
        {Sequence(Integer(std::string("\0\x80", 2)) + Integer(std::string(31, 's'))),
         std::string(31, '\0') + "\x80" + std::string(1, '\0') + std::string(31, 's')},
    };
    for (const auto& [der, raw] : cases) {
        EXPECT_EQ(ConvertASN1ToRaw(der), raw);
        for (std::size_t size = 0; size < der.size(); ++size)
            EXPECT_EQ(ConvertASN1ToRaw(der.substr(0, size)), "") << size;
        EXPECT_EQ(ConvertASN1ToRaw(der + '\0'), "");
    }
}

TEST(EcdsaSignature, IsRefusedInAnyOtherEncoding) {
    const std::string one = Integer("\x01");
    const std::pair<const char*, std::string> cases[] = {
        {"negative", Sequence(Integer("\x80") + one)},
        {"needless zero", Sequence(Integer(std::string("\0\x01", 2)) + one)},
        {"no content", Sequence(Integer("") + one)},
        {"33 bytes", Sequence(Integer("\x01" + std::string(32, 'x')) + one)},
        {"33 bytes, second", Sequence(one + Integer("\x01" + std::string(32, 'x')))},
        {"one integer", Sequence(one)},
        {"three integers", Sequence(one + one + one)},
        {"length in two bytes", "\x30\x81\x06" + one + one},
        {"no given length", "\x30\x80" + one + one + std::string(2, '\0')},
        {"set", "\x31\x06" + one + one},
        {"bit string", Sequence("\x03\x01\x01" + one)},
    };
    for (const auto& [name, der] : cases) EXPECT_EQ(ConvertASN1ToRaw(der), "") << name;
}

TEST(PublicKey, TakesASignatureOfItsOwnAndNoOther) {
    for (const Kind kind : {Kind::P256, Kind::Rsa2048}) {
        const CSoftKey& pair = CSoftKey::Shared(kind);
        const CPublicKey key = PublicHalf(pair);
        const std::string digest = Sha256({"what is signed"});
        const std::string signature = pair.IsRsa() ? pair.SignRsa(SignatureHash::Sha256, digest)
                                                   : ConvertASN1ToRaw(pair.SignEcdsa(digest));
        const auto verify = [&](std::string_view d, std::string_view s) {
            return pair.IsRsa() ? key.VerifyRsa(SignatureHash::Sha256, d, s) : key.VerifyEcdsa(d, s);
        };
        EXPECT_EQ(verify(digest, signature), ErrorCode::Success);
        for (std::size_t bit = 0; bit < digest.size() * 8; ++bit)
            EXPECT_EQ(verify(WithBitFlipped(digest, bit), signature), ErrorCode::BadSignature) << bit;
        for (std::size_t bit = 0; bit < signature.size() * 8; ++bit)
            EXPECT_EQ(verify(digest, WithBitFlipped(signature, bit)), ErrorCode::BadSignature) << bit;
        for (std::size_t size = 0; size < signature.size(); ++size)
            EXPECT_EQ(verify(digest, signature.substr(0, size)), ErrorCode::BadSignature) << size;
        EXPECT_EQ(verify(digest, signature + '\0'), ErrorCode::BadSignature);
    }
}

TEST(PublicKey, TakesIntegersThatNeedPadding) {
    const CSoftKey& pair = CSoftKey::Shared(Kind::P256);
    const CPublicKey key = PublicHalf(pair);
    const std::string digest = Sha256({"what is signed"});
    // Every 256th signature or so has a first integer that begins with a zero byte, as often the second.
    bool hasShortR = false, hasShortS = false;
    while (!hasShortR || !hasShortS) {
        const std::string raw = ConvertASN1ToRaw(pair.SignEcdsa(digest));
        ASSERT_EQ(raw.size(), 64U);
        if (raw[0] != 0 && raw[32] != 0) continue;
        (raw[0] == 0 ? hasShortR : hasShortS) = true;
        EXPECT_EQ(key.VerifyEcdsa(digest, raw), ErrorCode::Success);
    }
}

TEST(PublicKey, HoldsTheNamedHashAgainstTheDigestsLength) {
    const CSoftKey& pair = CSoftKey::Shared(Kind::Rsa2048);
    const CPublicKey key = PublicHalf(pair);
    const std::string sha1 = Sha1({"text"}), sha256 = Sha256({"text"});
    const std::string ofSha1 = pair.SignRsa(SignatureHash::Sha1, sha1);
    const std::string ofSha256 = pair.SignRsa(SignatureHash::Sha256, sha256);
    EXPECT_EQ(key.VerifyRsa(SignatureHash::Sha1, sha1, ofSha1), ErrorCode::Success);
    EXPECT_EQ(key.VerifyRsa(SignatureHash::Sha256, sha1, ofSha1), ErrorCode::BadSignature);
    EXPECT_EQ(key.VerifyRsa(SignatureHash::Sha1, sha256, ofSha256), ErrorCode::BadSignature);
    EXPECT_EQ(key.VerifyRsa(SignatureHash::Sha1, "", ofSha1), ErrorCode::BadSignature);
}

TEST(PublicKey, IsAPointOfTheCurveInFullLength) {
    const CSoftKey& pair = CSoftKey::Shared(Kind::P256);
    const std::string x = pair.X(), y = pair.Y(), none(32, '\0');
    EXPECT_TRUE(CPublicKey::FromP256(x, y).IsOk());
    const std::pair<std::string, std::string> cases[] = {
        {WithBitFlipped(x, 0), y},
        {x, WithBitFlipped(y, 255)},
        {y, x},
        {none, none},
        {std::string(32, '\xFF'), y},
        {x.substr(1), y},
        {x, '\0' + y},
        {"", ""},
        {x + y, ""},
    };
    for (const auto& [first, second] : cases)
        EXPECT_EQ(CPublicKey::FromP256(first, second).Error(), ErrorCode::BadKey);
}

TEST(PublicKey, KeepsRsaWithinBounds) {
    const auto odd = [](std::size_t bytes, char first) {
        return first + std::string(bytes - 2, 'm') + '\x01';
    };
    const std::string usual("\x01\x00\x01", 3);
    const std::tuple<const char*, std::string, std::string, bool> cases[] = {
        {"1,024 bits", odd(128, '\x80'), usual, true},
        {"1,023 bits", odd(128, '\x7F'), usual, false},
        {"8,192 bits", odd(1024, '\xFF'), usual, true},
        {"8,193 bits", odd(1025, '\x01'), usual, false},
        {"leading zeros", std::string(2000, '\0') + odd(256, '\xC0'), std::string(2000, '\0') + usual, true},
        {"no modulus", "", usual, false},
        {"exponent 3", odd(256, '\xC0'), "\x03", true},
        {"exponent 1", odd(256, '\xC0'), "\x01", false},
        {"exponent 0", odd(256, '\xC0'), std::string(1, '\0'), false},
        {"no exponent", odd(256, '\xC0'), "", false},
        {"even exponent", odd(256, '\xC0'), "\x04", false},
        {"exponent of 64 bits", odd(256, '\xC0'), std::string(8, '\xFF'), true},
        {"exponent of 65 bits", odd(256, '\xC0'), "\x01" + std::string(8, '\xFF'), false},
    };
    for (const auto& [name, modulus, exponent, isGood] : cases) {
        const auto key = CPublicKey::FromRsa(modulus, exponent);
        EXPECT_EQ(key.Error(), isGood ? ErrorCode::Success : ErrorCode::BadKey) << name;
    }
}

TEST(PublicKey, IsTakenFromACertificateAlone) {
    const std::string digest = Sha256({"text"});
    const CSoftKey& ec = CSoftKey::Shared(Kind::P256);
    const CSoftKey& rsa = CSoftKey::Shared(Kind::Rsa2048);
    const CPublicKey ecKey = CPublicKey::FromCertificate(ec.Certificate()).Value();
    const CPublicKey rsaKey = CPublicKey::FromCertificate(rsa.Certificate()).Value();
    const std::string ecSignature = ConvertASN1ToRaw(ec.SignEcdsa(digest));
    const std::string rsaSignature = rsa.SignRsa(SignatureHash::Sha256, digest);
    EXPECT_EQ(ecKey.VerifyEcdsa(digest, ecSignature), ErrorCode::Success);
    EXPECT_EQ(rsaKey.VerifyRsa(SignatureHash::Sha256, digest, rsaSignature), ErrorCode::Success);
    EXPECT_EQ(ecKey.VerifyRsa(SignatureHash::Sha256, digest, rsaSignature), ErrorCode::BadKey);
    EXPECT_EQ(rsaKey.VerifyEcdsa(digest, ecSignature), ErrorCode::BadKey);
    for (const Kind kind : {Kind::P384, Kind::Ed25519}) {
        const auto key = CPublicKey::FromCertificate(CSoftKey::Shared(kind).Certificate());
        ASSERT_TRUE(key.IsOk());
        EXPECT_EQ(key.Value().VerifyEcdsa(digest, ecSignature), ErrorCode::BadKey);
    }
    EXPECT_EQ(CPublicKey::FromCertificate(CSoftKey::Shared(Kind::Rsa512).Certificate()).Error(),
              ErrorCode::BadKey);
    for (const std::string& der : {ec.Certificate(), rsa.Certificate()}) {
        EXPECT_EQ(CPublicKey::FromCertificate(der + '\0').Error(), ErrorCode::BadData);
        for (std::size_t size = 0; size < der.size(); ++size)
            EXPECT_EQ(CPublicKey::FromCertificate(der.substr(0, size)).Error(), ErrorCode::BadData) << size;
    }
}

TEST(PublicKey, LeavesNothingInTheLibrarysErrorQueue) {
    ERR_clear_error();
    ERR_raise(ERR_LIB_USER, 1);  // of somebody else
    const unsigned long others = ERR_peek_last_error();
    const CPublicKey key = PublicHalf(CSoftKey::Shared(Kind::Rsa2048));
    Ignore(CPublicKey::FromP256(std::string(32, 'x'), std::string(32, 'y')));
    Ignore(CPublicKey::FromCertificate("no certificate"));
    Ignore(key.VerifyRsa(SignatureHash::Sha256, Sha256({}), std::string(256, 's')));
    Ignore(ConvertASN1ToRaw("no signature"));
    EXPECT_EQ(ERR_peek_last_error(), others);
    ERR_clear_error();
}

}  // namespace
}  // namespace quorbel
