#pragma once

#include <gtest/gtest.h>

#include "platform/registry/SqliteRegistry.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/service/Subprocess.h"

namespace quorbel {

/// The built program, with a root folder of its own and a standard input that is no terminal.
class QbctlTest : public testing::Test {
 protected:
    struct CRun {
        int code = -1;
        std::string output;
        std::string errors;
    };

    CRun Run(const std::vector<std::string>& arguments, const std::string& input = {},
             std::optional<std::uint64_t> largestFile = std::nullopt) {
        WriteFile(m_folder / "input", input);
        CSubprocess program("qbctl", arguments, {{"QUORBEL_ROOT", m_root.string()}}, m_folder / "output",
                            m_folder / "errors", m_folder / "input", largestFile);
        const int code = program.Wait();
        return {code, ReadFile(m_folder / "output"), ReadFile(m_folder / "errors")};
    }

    std::shared_ptr<IRegistry> Registry() { return OpenSqliteRegistry(m_root / "registry").Value(); }

    CTemporaryFolder m_folder;
    const std::filesystem::path m_root = m_folder / "state/root";
};

}  // namespace quorbel
