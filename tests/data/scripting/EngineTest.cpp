#include <barrier>

#include "data/scripting/Engine.h"
#include "platform/Text.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel::LibScripting {
namespace {

const std::filesystem::path kTestEngine = QUORBEL_LIBRARIES "/TestEngine.so";

std::wstring Wide(const std::filesystem::path& path) {
    return FromUtf8(path.string());
}

TEST(Engine, IsLoadedOnceForAllThreadsThatAskForIt) {
    const CTemporaryFolder folder;
    const auto path = folder / "Once.so";
    std::filesystem::copy_file(kTestEngine, path);
    constexpr std::size_t kThreads = 8;
    std::array<std::shared_ptr<Engine>, kThreads> engines;
    std::barrier start(kThreads);
    {
        std::vector<std::jthread> threads;
        for (auto& engine : engines) {
            threads.emplace_back([&] {
                start.arrive_and_wait();
                engine = FindEngine(Wide(path)).Value();
            });
        }
    }
    for (const auto& engine : engines) EXPECT_EQ(engine, engines[0]);
}

TEST(Engine, IsNotRememberedAsMissing) {
    const CTemporaryFolder folder;
    const auto path = folder / "Late.so";
    EXPECT_EQ(FindEngine(Wide(path)).Error(), ErrorCode::ModuleNotFound);
    std::filesystem::copy_file(kTestEngine, path);
    const auto engine = FindEngine(Wide(path));
    ASSERT_TRUE(engine.IsOk());
    std::filesystem::remove(path);
    EXPECT_EQ(FindEngine(Wide(path)).Value(), engine.Value()) << "loaded for good";
}

}  // namespace
}  // namespace quorbel::LibScripting
