#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fstream>

#include "LibService/ServiceLogger.h"
#include "LibService/trace/HuffmanCoder.h"

namespace quorbel {

namespace {

constexpr std::uint32_t kNothing = 0x00010000;
constexpr std::uint32_t kTwoIntegers = 0x00010001;
constexpr std::uint32_t kText = 0x00010002;
constexpr std::uint32_t kDropped = 0x40010000;

class CObject final : public CTraceLoggable {
 public:
    const char* TraceName() const override { return "HTTP Server"; }
};

/// The logger that all threads of a benchmark share, with the default settings.
CServiceLogger& Logger() {
    static CServiceLogger logger;
    static const bool isReady = [] {
        auto module = CMessageModule::Parse(
            "FacilityNames=(One=1)\n"
            "MessageId=0\nSeverity=Success\nFacility=One\nLanguage=English\nNothing\n.\n"
            "MessageId=1\nLanguage=English\n%u1 of %I64d2\n.\n"
            "MessageId=2\nLanguage=English\n%s1\n.\n");
        if (module.IsOk()) logger.SetMessages(module.Value());
        return module.IsOk();
    }();
    return isReady ? logger : (std::abort(), logger);
}

const std::wstring kRequest = L"/archive/letters/1902-09-cable";

template <class... Arguments>
void TraceRecord(benchmark::State& state, std::uint32_t id, Arguments... arguments) {
    CServiceLogger& logger = Logger();
    const CObject object;
    for (auto _ : state) logger.Trace(object, id, {arguments...});
}
BENCHMARK_CAPTURE(TraceRecord, dropped_no_argument, kDropped);
BENCHMARK_CAPTURE(TraceRecord, dropped_two_integers, kDropped, 5U, std::int64_t{-70000});
BENCHMARK_CAPTURE(TraceRecord, kept_no_argument, kNothing)->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK_CAPTURE(TraceRecord, kept_two_integers, kTwoIntegers, 5U, std::int64_t{-70000})
    ->Threads(1)
    ->Threads(4)
    ->UseRealTime();
BENCHMARK_CAPTURE(TraceRecord, kept_text_of_30, kText, std::wstring_view(kRequest))
    ->Threads(1)
    ->Threads(4)
    ->UseRealTime();

/// The first block of the trace file that $QUORBEL_TRACE_FILE names; empty without one.
std::vector<std::uint8_t> RealBlock() {
    const char* const path = std::getenv("QUORBEL_TRACE_FILE");
    if (path == nullptr) return {};
    std::ifstream file(path, std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
    // Behind the strings and the number of the block's first record.
    std::size_t offset = 1;
    for (std::size_t left = bytes.empty() ? 0 : bytes[0]; left != 0 && offset < bytes.size(); --left)
        offset += 1U + bytes[offset];
    offset += sizeof(std::uint64_t);
    if (offset >= bytes.size()) return {};
    auto block = Decompress(std::span(bytes).subspan(offset));
    return block ? std::move(block->content) : std::vector<std::uint8_t>();
}

void CompressBlock(benchmark::State& state) {
    const std::vector<std::uint8_t> image = RealBlock();
    if (image.empty()) return state.SkipWithError("QUORBEL_TRACE_FILE names no trace file");
    std::size_t size = 0;
    for (auto _ : state) {
        std::vector<std::uint8_t> block;
        CHuffmanCoder(image).Compress(image, block);
        size = block.size();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * image.size()));
    state.counters["bytes"] = static_cast<double>(image.size());
    state.counters["ratio"] = static_cast<double>(size) / static_cast<double>(image.size());
}
BENCHMARK(CompressBlock);

void DecompressBlock(benchmark::State& state) {
    const std::vector<std::uint8_t> image = RealBlock();
    if (image.empty()) return state.SkipWithError("QUORBEL_TRACE_FILE names no trace file");
    std::vector<std::uint8_t> block;
    CHuffmanCoder(image).Compress(image, block);
    for (auto _ : state) benchmark::DoNotOptimize(Decompress(block));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * image.size()));
}
BENCHMARK(DecompressBlock);

}  // namespace

}  // namespace quorbel
