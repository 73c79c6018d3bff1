#pragma once

#include <filesystem>
#include <string_view>

namespace quorbel {

/// A fresh folder that is removed with everything in it at the end.
class CTemporaryFolder {
 public:
    CTemporaryFolder();
    ~CTemporaryFolder();
    CTemporaryFolder(const CTemporaryFolder&) = delete;
    CTemporaryFolder& operator=(const CTemporaryFolder&) = delete;

    const std::filesystem::path& Path() const noexcept { return m_path; }
    std::filesystem::path operator/(std::string_view name) const { return m_path / name; }

 private:
    std::filesystem::path m_path;
};

/// Writes a file, creating the folders on the way; fails the test when it cannot.
void WriteFile(const std::filesystem::path& path, std::string_view content);
std::string ReadFile(const std::filesystem::path& path);

}  // namespace quorbel
