#include "tests/LibService/trace/TraceFileDecoder.h"

#include <stdexcept>

namespace quorbel {

namespace {

std::uint64_t Number(const std::string& bytes, std::size_t offset, std::size_t size) {
    std::uint64_t number = 0;
    for (std::size_t i = size; i-- > 0;)
        number = number << 8 | static_cast<unsigned char>(bytes.at(offset + i));
    return number;
}

/// The next `count` bits as characters 0 and 1, in the order in which they stand.
std::string Bits(const std::string& bytes, std::size_t& bit, std::size_t count) {
    std::string bits;
    for (; bits.size() < count; ++bit)
        bits += (static_cast<unsigned char>(bytes.at(bit / 8)) >> bit % 8 & 1) != 0 ? '1' : '0';
    return bits;
}

std::uint64_t Value(const std::string& bits) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bits.size(); ++i) value += bits[i] == '1' ? std::uint64_t{1} << i : 0;
    return value;
}

void DecodeRecords(const std::string& image, std::uint64_t first, CDecodedFile& file) {
    const std::size_t used = Number(image, 0, 2);
    if (used > image.size() || (image.size() - used) % 4 != 0) throw std::runtime_error("length");
    std::uint64_t time = 0;
    for (std::size_t at = 2; at < used;) {
        const std::size_t identifier = Number(image, at, 1);
        const std::size_t object = Number(image, at + 1, 1);
        const std::size_t length = Number(image, at + 2, 2) % 8192;
        const std::size_t width = Number(image, at + 2, 2) / 8192 + 1;
        time += Number(image, at + 4, width);
        const std::size_t end = at + 4 + width + length;
        if (end > used) throw std::runtime_error("record");
        file.records.push_back({first++, time,
                                static_cast<std::uint32_t>(Number(image, used + 4 * identifier, 4)),
                                file.strings.at(object), image.substr(end - length, length)});
        at = end;
    }
}

}  // namespace

std::string DecodeBlock(const std::string& bytes, std::size_t& offset) {
    std::size_t bit = 8 * offset;
    const std::size_t width = Value(Bits(bytes, bit, 8));
    std::map<std::string, char> codes;
    for (int value = 0; value < 256; ++value) {
        const std::size_t length = Value(Bits(bytes, bit, width));
        const std::string code = Bits(bytes, bit, length);
        if (length != 0 && !codes.emplace(code, static_cast<char>(value)).second)
            throw std::runtime_error("code");
    }
    const std::uint64_t count = Value(Bits(bytes, bit, 32));
    std::string content;
    for (std::string code; content.size() < count;) {
        code += Bits(bytes, bit, 1);
        const auto found = codes.find(code);
        if (found == codes.end()) continue;
        content += found->second;
        code.clear();
    }
    offset = (bit + 7) / 8;
    return content;
}

CDecodedFile DecodeTraceFile(const std::string& bytes) {
    CDecodedFile file;
    std::size_t offset = 1;
    while (file.strings.size() < static_cast<unsigned char>(bytes.at(0))) {
        const auto length = static_cast<unsigned char>(bytes.at(offset));
        if (offset + 1 + length > bytes.size()) throw std::runtime_error("string");
        file.strings.push_back(bytes.substr(offset + 1, length));
        offset += 1U + length;
    }
    while (offset < bytes.size()) {
        const std::uint64_t first = Number(bytes, offset, 8);
        file.blocks.push_back(first);
        offset += 8;
        DecodeRecords(DecodeBlock(bytes, offset), first, file);
    }
    return file;
}

}  // namespace quorbel
