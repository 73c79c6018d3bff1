#include <cerrno>
#include <cstring>

#include "platform/Error.h"
#include "platform/Text.h"
#include "platform/com/Com.h"
#include "platform/crypto/KeyStorage.h"

namespace quorbel {
namespace {

constexpr int kLastErrno = 133;

TEST(Error, HasATextForWhateverTheSystemReports) {
    for (int number = -1; number <= kLastErrno + 1; ++number) {
        const ErrorCode code = ErrorFromErrno(number);
        EXPECT_EQ(code == ErrorCode::Success, number == 0) << std::strerror(number);
        const auto text = SystemMessage(ToNumber(code));
        ASSERT_TRUE(text.has_value()) << std::strerror(number);
        EXPECT_TRUE(text->ends_with(L'.')) << ToUtf8(*text);
    }
}

TEST(Error, TellsApartWhatOperatorsActUponDifferently) {
    const std::pair<int, std::uint32_t> cases[] = {
        {ENOENT, 2},   {ENOTDIR, 3}, {EMFILE, 4},   {EACCES, 5},         {ENOMEM, 8},
        {EROFS, 19},   {EINVAL, 87}, {ENOSPC, 112}, {EDQUOT, 112},       {EBUSY, 170},
        {EEXIST, 183}, {EIO, 1117},  {EPERM, 1314}, {EADDRINUSE, 10048}, {-1, 31},
    };
    for (const auto& [number, code] : cases) {
        EXPECT_EQ(ToNumber(ErrorFromErrno(number)), code) << std::strerror(number);
    }
}

TEST(Error, HasTextsOfDifferentWordsForDifferentNumbers) {
    std::map<std::wstring, std::uint32_t> texts;
    for (std::uint32_t number = 0; number < 0x10000; ++number) {
        const auto text = SystemMessage(number);
        if (!text) continue;
        EXPECT_TRUE(text->ends_with(L'.') && text->size() > 1) << number;
        const auto [other, isNew] = texts.emplace(*text, number);
        EXPECT_TRUE(isNew) << number << " and " << other->second;
    }
    EXPECT_EQ(SystemMessage(0xFFFFFFFF), std::nullopt);
    EXPECT_EQ(SystemMessage(0xFFFF), std::nullopt);
}

TEST(Error, KeepsAWin32NumberInAnHResultAndItsText) {
    EXPECT_EQ(HResultFromWin32(0), S_OK);
    EXPECT_EQ(HResultFromWin32(2), static_cast<HRESULT>(0x80070002));
    EXPECT_EQ(HResultFromWin32(10048), static_cast<HRESULT>(0x80072740));
    EXPECT_EQ(HResultFromWin32(0x80004005), E_FAIL) << "already one";
    EXPECT_FALSE(Succeeded(HResultFromWin32(2)));
    EXPECT_TRUE(Succeeded(S_FALSE));

    EXPECT_EQ(HResultMessage(HResultFromWin32(5)), SystemMessage(5));
    EXPECT_EQ(HResultMessage(2), SystemMessage(2));
    EXPECT_EQ(HResultMessage(static_cast<HRESULT>(0x80040002)), L"") << "another facility";
    EXPECT_EQ(HResultMessage(HResultFromWin32(0xFFFF)), L"");
    for (HRESULT result : {E_NOTIMPL, E_NOINTERFACE, E_POINTER, E_FAIL, REGDB_E_CLASSNOTREG, E_INVALIDARG,
                           NTE_BAD_DATA, NTE_NOT_FOUND, NTE_BAD_KEYSET, NTE_FAIL, NTE_INVALID_PARAMETER}) {
        EXPECT_TRUE(HResultMessage(result).ends_with(L'.')) << result;
    }
}

TEST(Error, GivesAResultsValueOrItsError) {
    CResult<std::unique_ptr<int>> good(std::make_unique<int>(7));
    EXPECT_TRUE(good.IsOk());
    EXPECT_EQ(good.Error(), ErrorCode::Success);
    EXPECT_EQ(*good.Value(), 7);
    EXPECT_EQ(*std::move(good).Value(), 7);
    const CResult<std::uint32_t> bad(ErrorCode::AccessDenied);
    EXPECT_FALSE(bad.IsOk());
    EXPECT_EQ(bad.Error(), ErrorCode::AccessDenied);
    EXPECT_EQ(CResult<std::uint32_t>(5U).Error(), ErrorCode::Success) << "a number is no error number";
}

}  // namespace
}  // namespace quorbel
