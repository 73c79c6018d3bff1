#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>

#include "components/archive/LocalArchive.h"
#include "platform/Error.h"
#include "platform/File.h"
#include "platform/LocalPath.h"
#include "platform/Text.h"
#include "platform/com/ClassRegistry.h"
#include "platform/registry/SqliteRegistry.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

const HRESULT kNotFound = HResultFromWin32(ToNumber(ErrorCode::FileNotFound));
const HRESULT kBadPathname = HResultFromWin32(ToNumber(ErrorCode::BadPathname));
const HRESULT kInvalidName = HResultFromWin32(ToNumber(ErrorCode::InvalidName));

/// The input block that asks for a view: two words that the component has no use for, then the name.
std::string ViewBlock(std::wstring_view name) {
    const std::string bytes = ToUtf16Bytes(name);
    std::string block(8, '\x5A');
    block.push_back(static_cast<char>(bytes.size()));
    block.push_back(static_cast<char>(bytes.size() >> 8));
    return block + bytes;
}

class LocalArchiveTest : public testing::Test {
 protected:
    LocalArchiveTest() {
        EXPECT_EQ(CreateComInstance(kArchiveFileSystemClass, archive), S_OK);
        WriteFile(file, "content");
    }

    /// A local path as the service writes it, below a volume or drive.
    std::wstring Local(const std::filesystem::path& path) const { return FromUtf8(path.native()); }

    void SetArchiveValue(std::wstring_view subkey, std::wstring_view name, const CValue& value) {
        auto key = localMachine->Create(L"SOFTWARE\\Quorbel\\Archive\\" + std::wstring(subkey));
        ASSERT_TRUE(key.IsOk());
        ASSERT_EQ(key.Value()->Set(name, value), ErrorCode::Success);
    }
    void SetDrive(std::wstring_view letter, std::wstring_view root) {
        SetArchiveValue(L"Drives", letter, CValue::FromText(root));
    }

    void SetViews(std::wstring_view path) { SetArchiveValue(L"", L"Views", CValue::FromText(path)); }

    HRESULT FolderPath(const std::wstring& written, std::wstring& path) {
        CComPtr<IArchiveFile> opened;
        const HRESULT result = archive->OpenFolder(written.c_str(), opened.Receive());
        return Succeeded(result) ? opened->GetPath(&path) : result;
    }
    HRESULT FilePath(const std::wstring& written, std::wstring& path) {
        CComPtr<IArchiveFile> opened;
        const HRESULT result = archive->OpenFile(written.c_str(), opened.Receive());
        return Succeeded(result) ? opened->GetPath(&path) : result;
    }
    CComPtr<IArchiveFile> Open(const std::filesystem::path& path) {
        CComPtr<IArchiveFile> opened;
        EXPECT_EQ(archive->OpenFile((L"0" + Local(path)).c_str(), opened.Receive()), S_OK) << path;
        return opened;
    }
    CArchiveFileInformation Information(const std::filesystem::path& path) {
        CArchiveFileInformation result{};
        CComPtr<IArchiveFileInformation> information;
        EXPECT_EQ(Open(path).QueryInterface(information), S_OK);
        EXPECT_EQ(information->QueryInformation(kArchiveFileInformation, &result, sizeof result), S_OK);
        return result;
    }
    std::uint64_t Words(const std::filesystem::path& path) {
        const auto information = Information(path);
        return std::uint64_t{information.word1} << 32 | information.word0;
    }

    /// Sends a control code with an output of `outputSize` characters.
    HRESULT Control(std::uint32_t code, std::string_view block, std::wstring& output,
                    std::uint32_t outputSize = 1'000) {
        // Exactly as large as said, so that a sanitizer sees a read or write beyond it.
        const std::vector<char> input(block.begin(), block.end());
        std::vector<wchar_t> buffer(outputSize);
        CComPtr<IArchiveFileControl> control;
        EXPECT_EQ(Open(file).QueryInterface(control), S_OK);
        std::uint32_t returned = 0;
        const HRESULT result = control->Control(code, input.data(), static_cast<std::uint32_t>(input.size()),
                                                buffer.data(), outputSize, &returned);
        EXPECT_EQ(returned % 2, 0U);
        output.assign(buffer.data(), returned / 2);
        return result;
    }
    HRESULT View(std::wstring_view name, std::wstring& path, std::uint32_t outputSize = 1'000) {
        return Control(kArchiveViewPath, ViewBlock(name), path, outputSize);
    }
    /// Where the view `name` of `file` is kept.
    std::filesystem::path ViewFile(std::string_view name) const {
        return views.native() + file.native() + "/" + std::string(name);
    }

    CTemporaryFolder folder;
    std::filesystem::path file = folder / "docs/file.txt";
    std::filesystem::path views = folder / "views";
    std::shared_ptr<IRegistry> registry = OpenSqliteRegistry(folder.Path()).Value();
    std::shared_ptr<IKey> localMachine = registry->LocalMachine();
    const CComRegistration registration = RegisterLocalArchive(localMachine);
    CComPtr<IArchiveFileSystem> archive;
};

TEST_F(LocalArchiveTest, OpensVolumeZeroHoweverItIsWritten) {
    std::wstring backward = Local(file);
    std::replace(backward.begin(), backward.end(), L'/', L'\\');
    const std::wstring canonical = L"0:" + Local(file);
    for (const auto& written : {L"0" + Local(file), L"0" + backward, L"0:" + Local(file), L"0:" + backward,
                                L"\\\\?\\" + Local(file), L"\\\\?\\" + backward}) {
        std::wstring path;
        EXPECT_EQ(FilePath(written, path), S_OK) << ToUtf8(written);
        EXPECT_EQ(path, canonical) << ToUtf8(written);
    }
}

TEST_F(LocalArchiveTest, RefusesPathsOfNoVolume) {
    for (const wchar_t* written :
         {L"", L"0", L"0:", L"\\\\?\\", L"0relative", L"0:relative", L"\\\\?\\relative", L"1/etc/passwd",
          L"/etc/passwd", L"etc/passwd", L"\\etc\\passwd", L":", L"1:/etc", L"\u00c4:/etc", L"CC:/etc",
          L"\\\\server\\share"}) {
        std::wstring path;
        EXPECT_EQ(FilePath(written, path), kBadPathname) << ToUtf8(written);
        EXPECT_EQ(FolderPath(written, path), kBadPathname) << ToUtf8(written);
    }
}

TEST_F(LocalArchiveTest, OpensFilesAsFilesAndFoldersAsFolders) {
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    const std::wstring root = L"0" + Local(folder.Path());
    std::wstring path;
    EXPECT_EQ(FilePath(root + L"/docs", path), kNotFound);
    EXPECT_EQ(FilePath(root + L"/fifo", path), kNotFound);
    EXPECT_EQ(FilePath(root + L"/missing", path), kNotFound);
    EXPECT_EQ(FolderPath(root + L"/docs/file.txt", path), HResultFromWin32(ToNumber(ErrorCode::Directory)));
    EXPECT_EQ(FolderPath(root + L"/missing", path), kNotFound);
    EXPECT_EQ(FolderPath(root + L"/docs", path), S_OK);
    EXPECT_EQ(path, L"\\\\?\\" + Local(folder / "docs"));
}

TEST_F(LocalArchiveTest, TranslatesDrives) {
    SetDrive(L"D", Local(folder.Path()) + L"/");
    SetDrive(L"E", Local(folder.Path()) + L"\\\\//");
    SetDrive(L"r", L"/");
    SetDrive(L"S", L"relative");
    SetDrive(L"T", L"");
    SetDrive(L"M", L"/missing-folder");
    SetArchiveValue(L"Drives", L"N", CValue::FromNumber32(1));
    ASSERT_EQ(::setenv("QUORBEL_TEST_FOLDER", folder.Path().c_str(), 1), 0);
    SetArchiveValue(L"Drives", L"X", CValue::FromText(L"%QUORBEL_TEST_FOLDER%", ValueType::ExpandableText));

    const std::wstring root = Local(folder.Path());
    const std::wstring docs = L"\\\\?\\" + Local(folder / "docs");
    const std::tuple<std::wstring, HRESULT, std::wstring> cases[] = {
        {L"D:\\docs", S_OK, docs},
        {L"d:/docs", S_OK, docs},
        {L"D:docs", S_OK, docs},
        {L"D:\\docs\\", S_OK, docs + L"/"},
        {L"D:", S_OK, L"\\\\?\\" + root},
        {L"D:\\", S_OK, L"\\\\?\\" + root + L"/"},
        {L"E:/docs", S_OK, docs},
        {L"X:/docs", S_OK, docs},
        {L"R:", S_OK, L"\\\\?\\/"},
        {L"R:" + Local(folder / "docs"), S_OK, docs},
        {L"C:", S_OK, L"\\\\?\\/"},
        {L"C:\\", S_OK, L"\\\\?\\/"},
        {L"c:" + Local(folder / "docs"), S_OK, docs},
        {L"C:" + Local(folder / "missing"), kNotFound, L""},
        {L"Z:\\docs", kNotFound, L""},
        {L"S:\\docs", kBadPathname, L""},
        {L"T:\\docs", kBadPathname, L""},
        {L"T:", kBadPathname, L""},
        {L"M:\\", kNotFound, L""},
        {L"N:\\docs", HResultFromWin32(ToNumber(ErrorCode::InvalidData)), L""},
    };
    for (const auto& [written, result, expected] : cases) {
        std::wstring path;
        EXPECT_EQ(FolderPath(written, path), result) << ToUtf8(written);
        EXPECT_EQ(path, expected) << ToUtf8(written);
    }
    std::wstring path;
    EXPECT_EQ(FilePath(L"D:\\docs\\file.txt", path), S_OK);
    EXPECT_EQ(path, L"0:" + Local(file));
    EXPECT_EQ(FolderPath(docs, path), S_OK) << "a translated path opens again";

    SetDrive(L"C", root);
    EXPECT_EQ(FolderPath(L"C:\\docs", path), S_OK) << "settings count at once";
    EXPECT_EQ(path, docs);
    SetDrive(L"C", L"");
    EXPECT_EQ(FolderPath(L"C:\\docs", path), kBadPathname) << "set to nothing is not unset";
}

TEST_F(LocalArchiveTest, TellsSizeTimeAndWordsOfTheVersionThatWasOpened) {
    const timespec times[] = {{0, UTIME_OMIT}, {1'700'000'000, 123'456'789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    const CArchiveFileInformation information = Information(file);
    EXPECT_EQ(information.size, 7U);
    EXPECT_EQ(information.modified, 133'444'736'001'234'567U);

    CComPtr<IArchiveFileInformation> asked;
    ASSERT_EQ(Open(file).QueryInterface(asked), S_OK);
    WriteFile(file, "longer content");
    CArchiveFileInformation after{};
    ASSERT_EQ(asked->QueryInformation(kArchiveFileInformation, &after, sizeof after), S_OK);
    EXPECT_EQ(std::memcmp(&information, &after, sizeof after), 0) << "of the version that was opened";
    std::vector<char> buffer(96);
    for (std::uint32_t size : {0U, 1U, 47U, 49U, 96U}) {
        EXPECT_EQ(asked->QueryInformation(kArchiveFileInformation, buffer.data(), size), E_INVALIDARG);
    }
    for (std::uint32_t number : {0U, 47U, 49U}) {
        EXPECT_EQ(asked->QueryInformation(number, buffer.data(), 48), E_INVALIDARG);
    }
}

TEST_F(LocalArchiveTest, GivesOtherWordsWheneverTheFileChanges) {
    const auto setTime = [&](long nanoseconds) {
        const timespec times[] = {{0, UTIME_OMIT}, {1'700'000'000, nanoseconds}};
        ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    };
    setTime(0);
    std::set<std::uint64_t> seen{Words(file)};
    EXPECT_EQ(Words(file), *seen.begin()) << "opening is no change";
    EXPECT_EQ(Words(folder / "docs/../docs/file.txt"), *seen.begin()) << "the path takes no part";

    const std::pair<const char*, std::function<void()>> changes[] = {
        {"size", [&] { WriteFile(file, "longer content"); }},
        {"time to the nanosecond", [&] { setTime(1); }},
        {"inode", [&] {
             std::filesystem::copy(file, folder / "next");
             std::filesystem::rename(folder / "next", file);
             setTime(1);
         }}};
    for (const auto& [what, change] : changes) {
        change();
        EXPECT_TRUE(seen.insert(Words(file)).second) << what;
    }
}

TEST_F(LocalArchiveTest, GivesAPathThatOpensTheVeryFile) {
    for (const std::string name :
         {"a b", "a*b?", "\x1F", "a\x1Fz", "a\x1F", "\xC3\xA4\xF0\x9F\x98\x80", "0:", "..."}) {
        WriteFile(folder / "docs" / name, name);
        std::wstring path;
        ASSERT_EQ(Open(folder / "docs" / name)->GetPath(&path), S_OK);
        EXPECT_TRUE(path.starts_with(L"0:/"));
        const auto local = ToLocalPath(path);
        EXPECT_TRUE(local.IsOk() && local.Value() == (folder / "docs" / name).native()) << name;
    }
}

TEST_F(LocalArchiveTest, FindsTheViewsOfAFile) {
    SetViews(Local(views) + L"/");
    WriteFile(ViewFile("thumbnail"), "small");
    WriteFile(ViewFile("\xC3\xA4 \xF0\x9F\x98\x80"), "small");
    std::wstring path;
    ASSERT_EQ(View(L"thumbnail", path), S_OK);
    EXPECT_TRUE(path.starts_with(Local(ViewFile("thumbnail")).substr(1) + kRevisionMark));
    const auto opened = CFile::Open(L"0:/" + path);
    ASSERT_TRUE(opened.IsOk());
    EXPECT_EQ(opened.Value().Stamp(), StampOf(Local(ViewFile("thumbnail"))).Value());
    EXPECT_EQ(View(L"\u00e4 \U0001F600", path), S_OK);

    std::filesystem::create_directories(ViewFile("folder"));
    EXPECT_EQ(View(L"folder", path), kNotFound);
    EXPECT_EQ(View(L"missing", path), kNotFound);
    EXPECT_EQ(path, L"");
}

TEST_F(LocalArchiveTest, GivesAViewAnotherPathWheneverItsFileChanges) {
    SetViews(Local(views));
    WriteFile(ViewFile("v"), "first");
    std::wstring first;
    std::wstring again;
    std::wstring changed;
    ASSERT_EQ(View(L"v", first), S_OK);
    ASSERT_EQ(View(L"v", again), S_OK);
    EXPECT_EQ(first, again);
    WriteFile(ViewFile("v"), "the second");
    ASSERT_EQ(View(L"v", changed), S_OK);
    EXPECT_NE(first, changed);
    EXPECT_EQ(ToLocalPath(L"0:/" + first).Value(), ToLocalPath(L"0:/" + changed).Value());
}

TEST_F(LocalArchiveTest, RefusesViewNamesThatAreNoNames) {
    using namespace std::literals;
    SetViews(Local(views));
    WriteFile(ViewFile("a/b"), "below");
    WriteFile(views.native() + file.parent_path().native() + "/beside", "beside");
    for (const auto name : {L""sv, L"."sv, L".."sv, L"a/b"sv, L"a\\b"sv, L"../beside"sv, L"..\\beside"sv,
                            L"/"sv, L"a\0"sv, L"\0"sv}) {
        std::wstring path;
        EXPECT_EQ(View(name, path), kInvalidName) << ToUtf8(name);
        EXPECT_EQ(path, L"");
    }
}

TEST_F(LocalArchiveTest, FindsNoViewsOutsideTheirFolder) {
    SetViews(Local(views));
    // Opened as <folder>/docs/../docs/file.txt the file must not lead to views of a path that climbs.
    WriteFile(views.native() + folder.Path().native() + "/docs/file.txt/v", "view");
    file = folder / "docs/../docs/file.txt";
    std::wstring path;
    EXPECT_EQ(View(L"v", path), kBadPathname);
    EXPECT_EQ(path, L"");
}

TEST_F(LocalArchiveTest, HasNoViewsUnlessTheyAreConfiguredWell) {
    std::wstring path;
    EXPECT_EQ(View(L"v", path), kNotFound);
    for (const wchar_t* setting : {L"", L"relative", L"0:/views"}) {
        SetViews(setting);
        EXPECT_EQ(View(L"v", path), kBadPathname) << ToUtf8(setting);
    }
    SetArchiveValue(L"", L"Views", CValue::FromNumber32(5));
    EXPECT_EQ(View(L"v", path), HResultFromWin32(ToNumber(ErrorCode::InvalidData)));
}

TEST_F(LocalArchiveTest, WritesNoMoreThanTheOutputHolds) {
    SetViews(Local(views));
    WriteFile(ViewFile("v"), "view");
    std::wstring whole;
    ASSERT_EQ(View(L"v", whole), S_OK);
    const auto size = static_cast<std::uint32_t>(whole.size());
    std::wstring path;
    EXPECT_EQ(View(L"v", path, size), S_OK);
    EXPECT_EQ(path, whole);
    for (std::uint32_t tooSmall : {size - 1, 1U, 0U}) {
        EXPECT_EQ(View(L"v", path, tooSmall), HResultFromWin32(ToNumber(ErrorCode::InsufficientBuffer)));
        EXPECT_EQ(path, L"");
    }
}

TEST_F(LocalArchiveTest, RefusesInputBlocksThatSayAnotherLengthThanTheyHave) {
    SetViews(Local(views));
    WriteFile(ViewFile("view"), "view");
    const std::string good = ViewBlock(L"view");
    ASSERT_EQ(good.size(), 18U);
    std::wstring path;
    for (std::size_t length = 0; length <= 20; ++length) {
        std::string block = good;
        block.resize(length, '\0');
        EXPECT_EQ(Control(kArchiveViewPath, block, path), length == good.size() ? S_OK : E_INVALIDARG)
            << length;
    }
    for (int said = 0; said < 0x10000; said += said < 20 ? 1 : 997) {
        if (said == 8) continue;
        std::string block = good;
        block[8] = static_cast<char>(said);
        block[9] = static_cast<char>(said >> 8);
        EXPECT_EQ(Control(kArchiveViewPath, block, path), E_INVALIDARG) << said;
    }
    std::string odd = good + "x";
    odd[8] = 9;
    EXPECT_EQ(Control(kArchiveViewPath, odd, path), E_INVALIDARG) << "half a character";
    for (std::uint32_t code : {0U, 1U, kArchiveViewPath + 1, kArchiveViewPath - 4}) {
        EXPECT_EQ(Control(code, good, path), E_INVALIDARG) << code;
    }
}

TEST_F(LocalArchiveTest, KeepsTheRulesOfObjectIdentity) {
    const CComPtr<IArchiveFile> opened = Open(file);
    CComPtr<IArchiveFileInformation> information;
    CComPtr<IArchiveFileControl> control;
    ASSERT_EQ(opened.QueryInterface(information), S_OK);
    ASSERT_EQ(information.QueryInterface(control), S_OK);
    CComPtr<IUnknown> identities[2];
    ASSERT_EQ(opened.QueryInterface(identities[0]), S_OK);
    ASSERT_EQ(control.QueryInterface(identities[1]), S_OK);
    EXPECT_EQ(identities[0].Get(), identities[1].Get());
    CComPtr<IArchiveFile> back;
    ASSERT_EQ(control.QueryInterface(back), S_OK);
    EXPECT_EQ(back.Get(), opened.Get());

    CComPtr<IDispatch> dispatch;
    EXPECT_EQ(opened.QueryInterface(dispatch), E_NOINTERFACE);
    EXPECT_FALSE(dispatch) << "a failure leaves nothing behind";
    EXPECT_EQ(archive.QueryInterface(dispatch), S_OK);
    CComPtr<IArchiveSystem> system;
    EXPECT_EQ(archive.QueryInterface(system), E_NOINTERFACE);
    EXPECT_EQ(opened->QueryInterface(IArchiveFile::kId, nullptr), E_POINTER);
}

TEST_F(LocalArchiveTest, IsCreatedByItsClassAlone) {
    GUID unknown = kArchiveFileSystemClass;
    unknown.data4[7] ^= 1;
    CComPtr<IArchiveFileSystem> created = archive;
    EXPECT_EQ(CreateComInstance(unknown, created), REGDB_E_CLASSNOTREG);
    EXPECT_FALSE(created);
    CComPtr<IArchiveSystem> system;
    EXPECT_EQ(CreateComInstance(kArchiveFileSystemClass, system), E_NOINTERFACE);
    EXPECT_FALSE(system);
    CComPtr<IUnknown> object;
    EXPECT_EQ(CreateComInstance(kArchiveFileSystemClass, object), S_OK);
    CComPtr<IUnknown> other;
    ASSERT_EQ(archive.QueryInterface(other), S_OK);
    EXPECT_NE(object.Get(), other.Get()) << "each creation gives an object of its own";
}

}  // namespace
}  // namespace quorbel
