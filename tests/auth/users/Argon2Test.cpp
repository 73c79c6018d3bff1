#include <gtest/gtest.h>

#include "auth/users/Argon2.h"

namespace quorbel {
namespace {

constexpr PasswordSalt kSalt{'s', 'a', 'l', 't', 's', 'a', 'l', 't', 's', 'a', 'l', 't', 's', 'a', 'l', 't'};

TEST(Argon2, GivesTheKnownAnswer) {
    constexpr PasswordHash kHash{0x42, 0xC7, 0x48, 0x61, 0x92, 0xB1, 0xC4, 0x54,
                                 0xF2, 0x90, 0x01, 0x15, 0x33, 0x33, 0x3E, 0x40};
    CArgon2 hasher;
    const auto hash = hasher.Hash("password", kSalt);
    ASSERT_TRUE(hash.IsOk());
    EXPECT_EQ(hash.Value(), kHash);
}

TEST(Argon2, HashesAnEmptyPassword) {
    CArgon2 hasher;
    const auto hash = hasher.Hash({}, kSalt);
    ASSERT_TRUE(hash.IsOk());
    EXPECT_EQ(hasher.Hash("", kSalt).Value(), hash.Value());
    EXPECT_NE(hasher.Hash(std::string_view("\0", 1), kSalt).Value(), hash.Value());
}

TEST(Argon2, EveryResultHasItsErrorNumber) {
    const std::map<int, std::uint32_t> numbers{{0, 0},      {-4, 615},   {-22, 8},   {-25, 87},
                                               {-31, 8252}, {-32, 8253}, {-33, 1054}};
    for (int result = -40; result <= 5; ++result) {
        const auto known = numbers.find(result);
        EXPECT_EQ(ToNumber(Argon2Error(result)), known == numbers.end() ? 1359 : known->second) << result;
    }
}

}  // namespace
}  // namespace quorbel
