#include <gtest/gtest.h>

#include "platform/crypto/AesGcm.h"

namespace quorbel {
namespace {

TEST(AesGcm, GivesThePublishedAnswer) {
    // Test case 14 of the mode's definition: everything is zero.
    const std::string_view sealed =
        "\xce\xa7\x40\x3d\x4d\x60\x6b\x6e\x07\x4e\xc5\xd3\xba\xf3\x9d\x18"
        "\xd0\xd1\xc8\xa7\x99\x99\x6b\xf0\x26\x5b\x98\xb5\xd4\x8a\xb9\x19";
    const std::string plain(16, '\0');
    EXPECT_EQ(SealAesGcm({}, {}, "", plain), sealed);
    EXPECT_EQ(OpenAesGcm({}, {}, "", sealed), plain);
}

TEST(AesGcm, OpensOnlyWhatBelongsTogether) {
    const AesKey key{1};
    const AesNonce nonce{2};
    const std::string sealed = SealAesGcm(key, nonce, "name", "").value();
    EXPECT_EQ(OpenAesGcm(key, nonce, "name", sealed), "");
    EXPECT_EQ(OpenAesGcm(AesKey{3}, nonce, "name", sealed), std::nullopt);
    EXPECT_EQ(OpenAesGcm(key, AesNonce{3}, "name", sealed), std::nullopt);
    EXPECT_EQ(OpenAesGcm(key, nonce, "Name", sealed), std::nullopt);
    EXPECT_EQ(OpenAesGcm(key, nonce, "", sealed), std::nullopt);
    EXPECT_EQ(OpenAesGcm(key, nonce, "name", ""), std::nullopt);
}

}  // namespace
}  // namespace quorbel
