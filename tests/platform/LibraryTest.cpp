#include <dlfcn.h>
#include <sys/stat.h>

#include "platform/Library.h"
#include "platform/Text.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

TEST(Library, FindsABareNameInTheFoldersOfTheSystem) {
    const auto library = CLibrary::Load(L"libm.so.6");
    ASSERT_TRUE(library.IsOk());
    const auto function = library.Value().Find("cos");
    ASSERT_TRUE(function.IsOk());
    EXPECT_EQ(reinterpret_cast<double (*)(double)>(function.Value())(0), 1);
    EXPECT_EQ(library.Value().Find("no such symbol").Error(), ErrorCode::ProcNotFound);
}

TEST(Library, RefusesWhatIsNoFullPathOrBareNameOfALibrary) {
    const CTemporaryFolder folder;
    WriteFile(folder / "text.so", "no library");
    ASSERT_EQ(::mkfifo((folder / "pipe.so").c_str(), 0600), 0);
    const std::wstring here = FromUtf8(folder.Path().string());
    const std::wstring names[] = {
        L"",
        L".",
        L"..",
        L"./libm.so.6",
        L"x86_64-linux-gnu/libm.so.6",
        L"..\\lib\\libm.so.6",
        L"C:\\libm.so.6",
        std::wstring(L"libm.so.6\0", 10),
        L"no-such-library.so",
        here,
        here + L"/text.so",
        here + L"/pipe.so",
        here + L"/missing.so",
    };
    for (const auto& name : names) {
        EXPECT_EQ(CLibrary::Load(name).Error(), ErrorCode::ModuleNotFound) << ToUtf8(name);
    }
}

TEST(Library, NeverLooksInTheCurrentFolder) {
    const auto known = CLibrary::Load(L"libm.so.6");
    ASSERT_TRUE(known.IsOk());
    Dl_info info{};
    ASSERT_NE(::dladdr(known.Value().Find("cos").Value(), &info), 0);
    const CTemporaryFolder folder;
    std::filesystem::create_symlink(info.dli_fname, folder / "here.so");
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.Path());
    const auto byName = CLibrary::Load(L"here.so");
    const auto byPath = CLibrary::Load(FromUtf8((folder / "here.so").string()));
    std::filesystem::current_path(before);
    EXPECT_EQ(byName.Error(), ErrorCode::ModuleNotFound);
    EXPECT_TRUE(byPath.IsOk());
}

}  // namespace
}  // namespace quorbel
