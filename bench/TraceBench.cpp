#include <benchmark/benchmark.h>
#include <filesystem>
#include <fstream>

#include "LibService/MessageIds.h"
#include "LibService/ServiceLogger.h"
#include "LibService/trace/HuffmanCoder.h"
#include "LibService/trace/TraceFileReader.h"

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

/// A block as the service fills it with requests.
std::vector<std::uint8_t> RequestBlock() {
    CServiceLogger logger;
    if (!logger.LoadMessages(QUORBEL_SOURCES "/messages/TrcQBHTTPService.mc").IsOk()) return {};
    const CObject object;
    const wchar_t* const names[] = {L"letters", L"maps", L"minutes", L"photographs", L"deeds"};
    for (std::size_t i = 0; i < 500; ++i) {
        logger.Trace(
            object, trace::kRequest,
            {std::wstring(L"1.1 GET /archive/") + names[i % 5] + L"/19" + std::to_wstring(10 + i * 7 % 90) +
             L"-" + std::to_wstring(i * 31 % 997) +
             L" headers{ Accept{text/html,application/xhtml+xml;q=0.9} Accept-Language{en-GB,en;q=0.5} "
             L"Connection{keep-alive} Host{localhost:8080} User-Agent{Mozilla/5.0 (X11; Linux x86_64)} }"});
    }
    return logger.ReadBlock(0)->block.image;
}

void CompressBlock(benchmark::State& state) {
    const std::vector<std::uint8_t> image = RequestBlock();
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
    const std::vector<std::uint8_t> image = RequestBlock();
    std::vector<std::uint8_t> block;
    CHuffmanCoder(image).Compress(image, block);
    for (auto _ : state) benchmark::DoNotOptimize(Decompress(block));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * image.size()));
}
BENCHMARK(DecompressBlock);

}  // namespace

}  // namespace quorbel
