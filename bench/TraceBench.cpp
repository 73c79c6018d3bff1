#include <benchmark/benchmark.h>

#include "LibService/MessageIds.h"
#include "LibService/ServiceLogger.h"

namespace quorbel {

namespace {

/// A request's record, dropped by the level mask or kept; the ring is full, so that a kept one drops the
/// oldest.
void TraceRequest(benchmark::State& state, CTraceLevelMask mask) {
    CServiceLogger logger;
    if (!logger.LoadMessages(QUORBEL_SOURCES "/messages/TrcQBHTTPService.mc").IsOk()) {
        return state.SkipWithError("no trace messages");
    }
    const CLoggedObject object("HTTP Server");
    const std::wstring line =
        L"1.1 GET /archive/letters/1902-09-cable headers{ Accept{text/html,application/xhtml+xml;q=0.9} "
        L"Accept-Language{en-GB,en;q=0.5} Connection{keep-alive} Host{localhost:8080} }";
    for (std::size_t i = 0; i < CTraceRing::kMostRecords; ++i) logger.Trace(object, trace::kRequest, {line});
    const std::uint64_t filled = logger.NextRecord();
    logger.SetLevelMask(mask);
    for (auto _ : state) logger.Trace(object, trace::kRequest, {line});
    const bool isKept = logger.NextRecord() != filled;
    if (isKept != mask.Keeps(trace::kRequest)) state.SkipWithError("kept or dropped against the mask");
}
BENCHMARK_CAPTURE(TraceRequest, dropped, CTraceLevelMask(0));
BENCHMARK_CAPTURE(TraceRequest, kept, CTraceLevelMask());

}  // namespace

}  // namespace quorbel
