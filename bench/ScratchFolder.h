#pragma once

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <string_view>

#include "platform/Text.h"

namespace quorbel {

/// A fresh folder for a benchmark's files, removed with everything in it at the end. Throws when it cannot be
/// made.
class CScratchFolder {
 public:
    CScratchFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "quorbel-XXXXXX").string();
        if (!::mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
        m_path = name;
    }
    ~CScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    CScratchFolder(const CScratchFolder&) = delete;
    CScratchFolder& operator=(const CScratchFolder&) = delete;

    std::filesystem::path Path(std::string_view name = {}) const { return m_path / name; }
    /// The same as the service's texts have it.
    std::wstring Text(std::string_view name = {}) const { return FromUtf8(Path(name).string()); }
    void Write(std::string_view name, std::string_view content) const {
        std::ofstream file(Path(name), std::ios::binary);
        if (!(file << content).flush()) throw std::runtime_error("cannot write " + Path(name).string());
    }

 private:
    std::filesystem::path m_path;
};

}  // namespace quorbel
