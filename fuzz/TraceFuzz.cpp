#include <cstdint>
#include <span>

#include "LibService/trace/TraceArguments.h"
#include "LibService/trace/TraceFileReader.h"
#include "LibService/trace/TraceText.h"

/// Any bytes as a trace file, and what it holds as text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quorbel;
    static const CTraceText text(L"%s1 %08X2 %.3f3 %I64d4 %hs5 %Ls6");
    const CTraceFileContent content = ReadTraceFile(std::span(data, size));
    for (const CTraceFileRecord& record : content.records) {
        if (const auto values = DecodeArguments(record.arguments)) text.Render(*values);
    }
    if (const auto values = DecodeArguments(std::span(data, size))) text.Render(*values);
    return 0;
}
