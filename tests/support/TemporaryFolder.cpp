#include "tests/support/TemporaryFolder.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <stdlib.h>

namespace quorbel {

CTemporaryFolder::CTemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "quorbel-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    m_path = name;
}

CTemporaryFolder::~CTemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

void WriteFile(const std::filesystem::path& path, std::string_view content) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    ASSERT_TRUE(file.good()) << path;
}

std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

}  // namespace quorbel
