#include <gtest/gtest.h>

#include "platform/Text.h"
#include "platform/crypto/Secret.h"

namespace quorbel {
namespace {

TEST(Secret, WipesEveryByteThatATextHasRoomFor) {
    for (std::size_t length : {3, 40, 4000}) {
        std::string text(length, 'x');
        text.resize(length / 2);
        Wipe(text);
        EXPECT_TRUE(text.empty());
        EXPECT_EQ(std::count(text.data(), text.data() + text.capacity(), '\0'),
                  static_cast<std::ptrdiff_t>(text.capacity()));
    }
}

TEST(Secret, IsTakenCopiedAndMovedWithoutLeavingTheOriginal) {
    for (const std::string text : {"", "short", "longer than what a string holds inside"}) {
        std::string given = text;
        CSecretBytes secret(std::move(given));
        EXPECT_TRUE(given.empty());  // NOLINT(bugprone-use-after-move): the point of it
        const CSecretBytes copy = secret;
        CSecretBytes moved = std::move(secret);
        EXPECT_TRUE(secret.IsEmpty());  // NOLINT(bugprone-use-after-move)
        EXPECT_EQ(moved.Get(), text);
        EXPECT_EQ(copy.Get(), text);
        moved = CSecretBytes("other");
        EXPECT_EQ(moved.Get(), "other");
        moved = copy;
        EXPECT_EQ(moved.Get(), text);
    }
}

TEST(Secret, ConvertsToTheSameUtf8AsAnyText) {
    const std::wstring text = L"a\u00e4\u20ac\U0001F600" + std::wstring(1, static_cast<wchar_t>(0xD800));
    EXPECT_EQ(ToSecretUtf8(text).Get(), ToUtf8(text));
    EXPECT_EQ(ToSecretUtf8(L"").Get(), "");
}

}  // namespace
}  // namespace quorbel
