#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <variant>

namespace quorbel {

/// What the dump is to be of, as the command line says.
struct CDumpArguments {
    std::uint32_t process = 0;
    std::uint32_t thread = 0;
    std::uint64_t record = 0;  ///< address of the fault's record in the process; 0 when there is none
    std::filesystem::path file;

    /// From "-p HEX -t HEX -e 0xHEX -f FILE", in any order, each once; or what is wrong with it.
    static std::variant<CDumpArguments, std::string> Parse(std::span<char* const> arguments);
};

}  // namespace quorbel
