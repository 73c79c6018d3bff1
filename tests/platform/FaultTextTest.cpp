#include <array>

#include "platform/fault/FaultText.h"

namespace quorbel {
namespace {

/// As a function leaves it on the stack.
struct CSavedFrame {
    std::uint64_t previous;
    std::uint64_t returnAddress;
};

std::string Hex(std::uint64_t number, int width = 1) {
    CFixedText<40> text;
    return std::string(text.AppendHex(number, width).View());
}

CFaultRecord FaultAt(std::uint64_t address, const void* frames) {
    CFaultRecord fault{};
    fault.code = kAccessViolation;
    fault.address = address;
    fault.context.uc_mcontext.gregs[REG_RIP] = static_cast<greg_t>(address);
    fault.context.uc_mcontext.gregs[REG_RBP] = static_cast<greg_t>(reinterpret_cast<std::uintptr_t>(frames));
    return fault;
}

TEST(FaultText, HasTheParametersInItsForm) {
    CFaultRecord fault = FaultAt(0x1234ABCD, nullptr);
    fault.parameterCount = 2;
    fault.parameters[0] = 8;
    fault.parameters[1] = 0x00007F001234ABCD;
    EXPECT_EQ(DescribeFault(fault, FaultTextForm::Exception).View(),
              "0xC0000005@0x000000001234ABCD (0x8, 0x1234ABCD)\nRIP: 0x1234ABCD");
    EXPECT_EQ(DescribeFault(fault, FaultTextForm::LastWords).View(),
              "0xC0000005@0x000000001234ABCD (0x8, 0x7F001234ABCD)\nRIP: 0x1234ABCD\n");
    fault.parameters[1] = 0x700000000;
    EXPECT_THAT(std::string(DescribeFault(fault, FaultTextForm::Exception).View()),
                testing::HasSubstr("(0x8, 0x0)"));
}

TEST(FaultText, FollowsTheFramesUpwards) {
    std::array<CSavedFrame, 2> frames{};
    const auto first = reinterpret_cast<std::uintptr_t>(&frames[0]);
    const auto second = reinterpret_cast<std::uintptr_t>(&frames[1]);
    frames[0] = {second, 0x11};
    frames[1] = {0, 0x22};
    const CFaultRecord fault = FaultAt(0x10, frames.data());
    const std::string start = "0xC0000005@0x0000000000000010 ()\nRIP: 0x10\n";
    EXPECT_EQ(
        DescribeFault(fault, FaultTextForm::Exception).View(),
        start + "0x" + Hex(first, 16) + " 0x0000000000000011\n0x" + Hex(second, 16) + " 0x0000000000000022");
    EXPECT_EQ(DescribeFault(fault, FaultTextForm::LastWords).View(),
              start + "0x" + Hex(first) + " 0x11\n0x" + Hex(second) + " 0x22\n");
}

TEST(FaultText, EndsWhereTheFramesLeadNowhere) {
    std::array<CSavedFrame, 12> frames{};
    const auto count = [&] {
        const CFaultText text = DescribeFault(FaultAt(0x10, frames.data()), FaultTextForm::LastWords);
        return std::ranges::count(text.View(), '\n') - 2;
    };
    for (std::size_t i = 0; i != frames.size() - 1; ++i)
        frames[i] = {reinterpret_cast<std::uintptr_t>(&frames[i + 1]), 1};
    EXPECT_EQ(count(), 10) << "at most";
    frames[4].previous = reinterpret_cast<std::uintptr_t>(&frames[4]);
    EXPECT_EQ(count(), 5) << "a frame that is its own caller";
    frames[2].previous = ~0ULL << 32;  // no memory of anybody
    EXPECT_EQ(count(), 3);
}

}  // namespace
}  // namespace quorbel
