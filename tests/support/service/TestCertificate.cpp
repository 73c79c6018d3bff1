#include "tests/support/service/TestCertificate.h"

#include <gtest/gtest.h>

#include "components/certificates/SelfSignedCertificate.h"
#include "platform/Text.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {

CTestCertificate WriteTestCertificate(const std::filesystem::path& folder, const std::string& stem,
                                      const std::vector<std::string>& names) {
    std::wstring reason;
    const auto pair = CreateSelfSignedCertificate(names, 30, reason);
    EXPECT_TRUE(pair) << ToUtf8(reason);
    const CTestCertificate paths{folder / (stem + ".crt"), folder / (stem + ".key")};
    if (!pair) return paths;
    for (const auto& [path, content] :
         {std::pair(paths.certificate, pair->certificate), std::pair(paths.privateKey, pair->privateKey)}) {
        WriteFile(path + ".new", content);
        std::filesystem::rename(path + ".new", path);
    }
    return paths;
}

}  // namespace quorbel
