#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Runs a fuzz target on every file of the folders given, and on every beginning of each.
int main(int count, char** folders) {
    std::size_t files = 0;
    for (int i = 1; i < count; ++i) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folders[i])) {
            if (!entry.is_regular_file()) continue;
            std::ifstream stream(entry.path(), std::ios::binary);
            const std::string content{std::istreambuf_iterator<char>(stream), {}};
            for (std::size_t size = 0; size <= content.size(); ++size) {
                // A copy of exactly this size, so that a read beyond the end is noticed.
                const std::string beginning = content.substr(0, size);
                LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(beginning.data()), size);
            }
            ++files;
        }
    }
    std::printf("%zu inputs\n", files);
    return files > 0 ? 0 : 1;
}
