#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quorbel {

/// The paths of a certificate's two PEM files.
struct CTestCertificate {
    std::string certificate;
    std::string privateKey;
};

/// Writes a new self-signed certificate for these names, and its key, to <stem>.crt and <stem>.key. Files
/// that are there already are replaced by new ones (other inodes).
CTestCertificate WriteTestCertificate(const std::filesystem::path& folder, const std::string& stem,
                                      const std::vector<std::string>& names);

}  // namespace quorbel
