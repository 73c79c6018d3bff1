#include "platform/LocalPath.h"

namespace quorbel {

namespace {

TEST(LocalPath, TurnsWhatTheServiceWritesIntoWhatTheFileSystemTakes) {
    const std::pair<std::wstring_view, std::string_view> cases[] = {
        {L"/srv/docs", "/srv/docs"},
        {LR"(\srv\docs\a.txt)", "/srv/docs/a.txt"},
        {LR"(\\?\/srv/docs)", "/srv/docs"},
        {LR"(\\?\\srv\docs)", "/srv/docs"},
        {L"0:/srv/docs", "/srv/docs"},
        {LR"(0:\srv\docs)", "/srv/docs"},
        {LR"(\\?\0:/srv)", "/srv"},
        {L"0:/", "/"},
        {L"0:/srv/a.txt\x1F"
         L"17",
         "/srv/a.txt"},
        {L"0:/srv/a.txt\x1F", "/srv/a.txt"},
        {L"0:/srv/odd\x1Fname\x1F"
         L"17",
         "/srv/odd\x1Fname"},
        {L"0:/srv/odd\x1F"
         L"folder/a.txt",
         "/srv/odd\x1F"
         "folder/a.txt"},
        {L"/srv/a.txt\x1F"
         L"17",
         "/srv/a.txt\x1F"
         "17"},
        {L"/srv/0:/a", "/srv/0:/a"},
        {L"0:", "0:"},
        {L"relative/a b?*", "relative/a b?*"},
        {L"/\u00e4\u20ac\U0001F600", "/\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
    };
    for (const auto& [written, local] : cases) {
        const auto result = ToLocalPath(written);
        ASSERT_TRUE(result.IsOk()) << local;
        EXPECT_EQ(result.Value(), local);
    }
}

TEST(LocalPath, RefusesWhatNoFileCanBeCalled) {
    const std::pair<std::wstring, ErrorCode> cases[] = {
        {L"", ErrorCode::PathNotFound},
        {LR"(\\?\)", ErrorCode::PathNotFound},
        {std::wstring(L"/srv/a\0b", 8), ErrorCode::InvalidName},
        {std::wstring(L"/srv/") + static_cast<wchar_t>(0xD800), ErrorCode::InvalidName},
        {std::wstring(L"/srv/") + static_cast<wchar_t>(0x110000), ErrorCode::InvalidName},
    };
    for (const auto& [written, error] : cases) EXPECT_EQ(ToLocalPath(written).Error(), error);
}

}  // namespace

}  // namespace quorbel
