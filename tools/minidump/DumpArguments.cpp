#include "tools/minidump/DumpArguments.h"

#include <charconv>
#include <map>
#include <string_view>

namespace quorbel {

namespace {

template <class Number>
bool ParseHex(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
    return error == std::errc() && end == text.data() + text.size();
}

bool ParseAddress(std::string_view text, std::uint64_t& number) {
    return text.starts_with("0x") && ParseHex(text.substr(2), number);
}

bool ParseOne(char flag, std::string_view text, CDumpArguments& parsed) {
    switch (flag) {
        case 'p': return ParseHex(text, parsed.process) && parsed.process != 0;
        case 't': return ParseHex(text, parsed.thread) && parsed.thread != 0;
        case 'e': return ParseAddress(text, parsed.record);
        case 'f': parsed.file = text; return parsed.file.has_filename();
        default: return false;
    }
}

}  // namespace

std::variant<CDumpArguments, std::string> CDumpArguments::Parse(std::span<char* const> arguments) {
    constexpr std::string_view kFlags = "ptef";
    CDumpArguments parsed;
    std::string missing(kFlags);
    for (std::size_t index = 0; index < arguments.size(); index += 2) {
        const std::string_view flag = arguments[index];
        const std::size_t place = flag.size() == 2 && flag[0] == '-' ? missing.find(flag[1]) : missing.npos;
        if (place == missing.npos) return "unexpected argument \"" + std::string(flag) + "\"";
        if (index + 1 == arguments.size()) return std::string(flag) + " lacks its value";
        const std::string_view value = arguments[index + 1];
        if (!ParseOne(flag[1], value, parsed))
            return "\"" + std::string(value) + "\" is no value of " + std::string(flag);
        missing.erase(place, 1);
    }
    if (!missing.empty()) return "-" + missing.substr(0, 1) + " is missing";
    return parsed;
}

}  // namespace quorbel
