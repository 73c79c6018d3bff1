#include <fstream>
#include <gtest/gtest.h>

#include "platform/FileCache.h"
#include "platform/Text.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

/// The machine's time of day, and so much more.
class CLaterClock final : public IClock {
 public:
    std::chrono::nanoseconds Steady() const override { return SystemClock().Steady(); }
    std::uint64_t System() const override { return SystemClock().System() + m_later; }
    void Pause(std::chrono::milliseconds, CEvent&) override {}
    void TurnOn() { m_later += 100'000'000; }  // ten seconds

 private:
    std::uint64_t m_later = 0;
};

class FileCacheTest : public ::testing::Test {
 protected:
    void Write(const std::string& content, std::ios::openmode mode = std::ios::trunc) {
        std::ofstream(m_path, std::ios::binary | mode) << content;
    }
    /// Opens the file and reads it whole.
    std::string Content() {
        m_file = m_cache.Open(FromUtf8(m_path.string())).Value();
        std::string content(static_cast<std::size_t>(m_file->Stamp().size) + 1, '?');
        const auto count =
            m_file->Read(0, {reinterpret_cast<std::uint8_t*>(content.data()), content.size()}).Value();
        return content.substr(0, count);
    }
    bool IsLoaded() const { return m_file->Descriptor() < 0; }

    CTemporaryFolder m_folder;
    const std::filesystem::path m_path = m_folder.Path() / "file";
    CLaterClock m_clock;
    CFileCache m_cache{m_clock};
    std::shared_ptr<const CFile> m_file;
};

TEST_F(FileCacheTest, ASmallFileIsLoadedOnceItHasSettled) {
    Write("one");
    EXPECT_EQ(Content(), "one");
    EXPECT_FALSE(IsLoaded());
    const auto open = m_file;
    EXPECT_EQ(Content(), "one");
    EXPECT_EQ(m_file, open) << "it is opened once";
    m_clock.TurnOn();
    EXPECT_EQ(Content(), "one");
    EXPECT_TRUE(IsLoaded());
    const auto loaded = m_file;
    EXPECT_EQ(Content(), "one");
    EXPECT_EQ(m_file, loaded) << "it is loaded once";
}

TEST_F(FileCacheTest, WhatIsKeptIsNeverShownForAnythingElse) {
    const std::pair<const char*, std::function<void()>> changes[] = {
        {"written over in place, the size unchanged", [this] { Write("two"); }},
        {"grown", [this] { Write("and more", std::ios::app); }},
        {"shrunk", [this] { std::filesystem::resize_file(m_path, 1); }},
        {"replaced",
         [this] {
             std::ofstream(m_folder.Path() / "other") << "2nd";
             std::filesystem::rename(m_folder.Path() / "other", m_path);
         }},
    };
    const char* const expected[] = {"two", "oneand more", "o", "2nd"};
    for (const bool isSettled : {false, true}) {
        for (std::size_t i = 0; i < std::size(changes); ++i) {
            SCOPED_TRACE(std::string(changes[i].first) + (isSettled ? ", loaded" : ", open"));
            std::filesystem::remove(m_path);
            Write("one");
            // A stamp apart from the next one: the kernel's ticks are of some milliseconds.
            const auto past = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
            std::filesystem::last_write_time(m_path, past);
            if (isSettled) m_clock.TurnOn();
            EXPECT_EQ(Content(), "one");
            EXPECT_EQ(IsLoaded(), isSettled);
            changes[i].second();
            EXPECT_EQ(Content(), expected[i]);
        }
    }
}

TEST_F(FileCacheTest, ADeletedFileIsNotFoundAndNoFolderIsTakenForIt) {
    Write("one");
    m_clock.TurnOn();
    EXPECT_EQ(Content(), "one");
    std::filesystem::remove(m_path);
    EXPECT_EQ(m_cache.Open(FromUtf8(m_path.string())).Error(), ErrorCode::FileNotFound);
    std::filesystem::create_directory(m_path);
    EXPECT_EQ(m_cache.Open(FromUtf8(m_path.string())).Error(), ErrorCode::FileNotFound);
}

TEST_F(FileCacheTest, LargeFilesAreNotKeptAndMiddlingOnesStayOpen) {
    m_clock.TurnOn();
    Write(std::string(CFileCache::kLargestOpen, 'x'));
    EXPECT_EQ(Content().size(), CFileCache::kLargestOpen);
    EXPECT_FALSE(IsLoaded());
    const auto kept = m_file;
    EXPECT_EQ(Content().size(), CFileCache::kLargestOpen);
    EXPECT_EQ(m_file, kept);
    Write("x", std::ios::app);
    EXPECT_EQ(Content().size(), CFileCache::kLargestOpen + 1);
    const auto large = m_file;
    EXPECT_EQ(Content().size(), CFileCache::kLargestOpen + 1);
    EXPECT_NE(m_file, large);
}

TEST_F(FileCacheTest, NoMoreFilesStayOpenThanTheBoundAllows) {
    std::vector<std::weak_ptr<const CFile>> opened;
    for (std::size_t i = 0; i < 2 * CFileCache::kMostBytes / CFileCache::kOpenCounts; ++i) {
        const auto path = m_folder.Path() / std::to_string(i);
        std::ofstream(path) << i;
        opened.push_back(m_cache.Open(FromUtf8(path.string())).Value());
    }
    const auto kept =
        std::count_if(opened.begin(), opened.end(), [](const auto& file) { return !file.expired(); });
    EXPECT_GT(kept, 0);
    EXPECT_LE(static_cast<std::size_t>(kept), CFileCache::kMostBytes / CFileCache::kOpenCounts);
    EXPECT_FALSE(opened.back().expired());
    EXPECT_TRUE(opened.front().expired()) << "the oldest leave first";
}

}  // namespace
}  // namespace quorbel
