#include "platform/fault/FaultText.h"

#include <sys/uio.h>
#include <unistd.h>

namespace quorbel {

namespace {

constexpr int kMostFrames = 10;

struct CFrame {
    std::uint64_t previous;
    std::uint64_t returnAddress;
};

/// The kernel reads the memory: what cannot be read is an error there, and no fault.
bool ReadFrame(std::uint64_t address, CFrame& frame) noexcept {
    const iovec here{&frame, sizeof frame};
    const iovec there{reinterpret_cast<void*>(address), sizeof frame};  // NOLINT: an address of the stack
    return ::process_vm_readv(::getpid(), &here, 1, &there, 1, 0) == static_cast<ssize_t>(sizeof frame);
}

/// An exception's text has the lower half of a parameter.
std::uint64_t ParameterIn(FaultTextForm form, std::uint64_t parameter) noexcept {
    return form == FaultTextForm::Exception ? static_cast<std::uint32_t>(parameter) : parameter;
}

void AppendFrames(std::uint64_t address, int width, CFaultText& text) noexcept {
    for (int count = 0; count != kMostFrames && address != 0; ++count) {
        CFrame frame{};
        if (!ReadFrame(address, frame)) return;
        text.Append("0x").AppendHex(address, width).Append(" 0x").AppendHex(frame.returnAddress, width);
        text.Append('\n');
        if (frame.previous <= address) return;
        address = frame.previous;
    }
}

}  // namespace

CFaultText DescribeFault(const CFaultRecord& fault, FaultTextForm form) noexcept {
    constexpr int kPointerWidth = 16;
    CFaultText text;
    text.Append("0x")
        .AppendHex(fault.code)
        .Append("@0x")
        .AppendHex(fault.address, kPointerWidth)
        .Append(" (");
    for (std::uint32_t index = 0; index < fault.parameterCount; ++index)
        text.Append(index == 0 ? "0x" : ", 0x").AppendHex(ParameterIn(form, fault.parameters[index]));
    const auto& registers = fault.context.uc_mcontext.gregs;
    text.Append(")\nRIP: 0x").AppendHex(static_cast<std::uint64_t>(registers[REG_RIP])).Append('\n');
    AppendFrames(static_cast<std::uint64_t>(registers[REG_RBP]),
                 form == FaultTextForm::Exception ? kPointerWidth : 1, text);
    if (form == FaultTextForm::Exception) text.TrimEnd();
    return text;
}

}  // namespace quorbel
