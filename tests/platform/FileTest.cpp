#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/File.h"
#include "platform/Text.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

class FileTest : public testing::Test {
 protected:
    CTemporaryFolder folder;
    std::filesystem::path file = folder / "file";

    static std::wstring Wide(const std::filesystem::path& path) { return FromUtf8(path.native()); }
    static CFileStamp Stamp(const std::filesystem::path& path) {
        const auto stamp = StampOf(Wide(path));
        EXPECT_EQ(stamp.Error(), ErrorCode::Success) << path;
        return stamp.IsOk() ? stamp.Value() : CFileStamp();
    }
    static void SetTimes(const std::filesystem::path& path, timespec modified) {
        const timespec times[] = {{0, UTIME_OMIT}, modified};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }
    /// The file system stamps changes with the time of the kernel's last tick: lets that move on.
    void AwaitClockTick(const CFileStamp& last) const {
        do {
            WriteFile(folder / "probe", "tick");
        } while (Stamp(folder / "probe").changed <= last.changed);
    }
    static std::string Read(const CFile& opened, std::uint64_t offset, std::size_t size) {
        std::string text(size, '\0');
        const auto count = opened.Read(offset, {reinterpret_cast<std::uint8_t*>(text.data()), size});
        EXPECT_EQ(count.Error(), ErrorCode::Success);
        text.resize(count.IsOk() ? count.Value() : 0);
        return text;
    }
};

TEST_F(FileTest, FindsOnlyRegularFilesAndNeverBlocks) {
    // A FIFO without a writer, and a terminal multiplexer that opening would have an effect on.
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    std::filesystem::create_directory(folder / "folder");
    std::filesystem::create_symlink("nowhere", folder / "dangling");
    std::filesystem::create_symlink("fifo", folder / "to-fifo");
    std::filesystem::create_symlink("folder", folder / "to-folder");
    const std::filesystem::path paths[] = {folder / "fifo",      folder / "to-fifo",  folder / "folder",
                                           folder / "to-folder", folder / "dangling", folder / "missing",
                                           "/dev/null",          "/dev/zero",         "/dev/ptmx"};
    for (const auto& path : paths) {
        EXPECT_EQ(CFile::Open(Wide(path)).Error(), ErrorCode::FileNotFound) << path;
        EXPECT_EQ(StampOf(Wide(path)).Error(), ErrorCode::FileNotFound) << path;
    }
}

TEST_F(FileTest, SaysWhyAPathCannotBeOpened) {
    WriteFile(file, "text");
    std::filesystem::create_symlink("round", folder / "round");
    const std::pair<std::wstring, ErrorCode> cases[] = {
        {Wide(file) + L"/below", ErrorCode::PathNotFound},
        {Wide(folder / "round"), ErrorCode::CantResolveFilename},
        {Wide(folder / std::string(256, 'n')), ErrorCode::FilenameExcedsRange},
        {Wide(file) + std::wstring(1, L'\0'), ErrorCode::InvalidName},
        {L"", ErrorCode::PathNotFound},
    };
    for (const auto& [path, error] : cases) {
        EXPECT_EQ(CFile::Open(path).Error(), error) << ToUtf8(path);
        EXPECT_EQ(StampOf(path).Error(), error) << ToUtf8(path);
    }
}

TEST_F(FileTest, FollowsLinksToRegularFiles) {
    WriteFile(file, "text");
    std::filesystem::create_symlink("file", folder / "link");
    EXPECT_EQ(Stamp(folder / "link"), Stamp(file));
    EXPECT_TRUE(CFile::Open(Wide(folder / "link")).IsOk());
}

TEST_F(FileTest, ReadsAtAnOffsetUpToTheEnd) {
    WriteFile(file, "0123456789");
    const auto opened = CFile::Open(Wide(file));
    ASSERT_TRUE(opened.IsOk());
    EXPECT_EQ(opened.Value().Stamp(), Stamp(file));
    EXPECT_EQ(opened.Value().Stamp().size, 10U);
    EXPECT_EQ(Read(opened.Value(), 0, 4), "0123");
    EXPECT_EQ(Read(opened.Value(), 8, 4), "89");
    EXPECT_EQ(Read(opened.Value(), 10, 4), "");
    EXPECT_EQ(Read(opened.Value(), 1ULL << 40, 4), "");
    EXPECT_EQ(Read(opened.Value(), 0, 0), "");

    std::filesystem::resize_file(file, 2);
    EXPECT_EQ(Read(opened.Value(), 0, 4), "01");
    EXPECT_EQ(Read(opened.Value(), 2, 4), "");
    std::filesystem::remove(file);
    EXPECT_EQ(Read(opened.Value(), 0, 4), "01") << "an open file outlives its name";
}

TEST_F(FileTest, HasAnotherStampWheneverTheFileChanges) {
    WriteFile(file, "old text");
    SetTimes(file, {1'000, 5});
    const CFileStamp original = Stamp(file);
    EXPECT_EQ(original.size, 8U);
    EXPECT_EQ(original.modified, 1'000'000'000'005);
    EXPECT_EQ(Stamp(file), original) << "looking at it is no change";
    SetTimes(file, {1'000, 6});
    EXPECT_EQ(Stamp(file).modified, original.modified + 1);

    const std::pair<const char*, std::function<void()>> changes[] = {
        {"a write of the same size", [&] { WriteFile(file, "new text"); }},
        {"a write of another size", [&] { WriteFile(file, "text"); }},
        {"a replacement",
         [&] {
             WriteFile(folder / "next", "old text");
             std::filesystem::rename(folder / "next", file);
         }},
        {"attributes", [&] { ASSERT_EQ(::chmod(file.c_str(), 0640), 0); }},
        {"nothing else", [] {}},
    };
    for (const auto& [what, change] : changes) {
        const CFileStamp before = Stamp(file);
        AwaitClockTick(before);
        change();
        SetTimes(file, {1'000, 5});
        EXPECT_NE(Stamp(file), before) << what << ", with the time of the last write set back";
        EXPECT_EQ(Stamp(file).inode != before.inode, std::string_view(what) == "a replacement") << what;
    }
}

TEST_F(FileTest, TakesTimesBeyond64BitsOfNanoseconds) {
    WriteFile(file, "text");
    SetTimes(file, {14'000'000'000, 0});  // the year 2413
    const CFileStamp late = Stamp(file);
    SetTimes(file, {14'000'000'001, 0});
    EXPECT_NE(Stamp(file).modified, late.modified);
    SetTimes(file, {-1, 0});
    EXPECT_EQ(Stamp(file).modified, -1'000'000'000);
}

TEST_F(FileTest, OpensFoldersAlone) {
    WriteFile(file, "text");
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    std::filesystem::create_directory_symlink(".", folder / "link");
    EXPECT_TRUE(OpenFolder(Wide(folder.Path())).IsOk());
    EXPECT_TRUE(OpenFolder(Wide(folder.Path()) + L"\\").IsOk());
    EXPECT_TRUE(OpenFolder(Wide(folder / "link")).IsOk());
    EXPECT_EQ(OpenFolder(Wide(file)).Error(), ErrorCode::Directory);
    EXPECT_EQ(OpenFolder(Wide(folder / "fifo")).Error(), ErrorCode::Directory);
    EXPECT_EQ(OpenFolder(Wide(folder / "missing")).Error(), ErrorCode::FileNotFound);
}

}  // namespace
}  // namespace quorbel
