#include <benchmark/benchmark.h>

#include "bench/ScratchFolder.h"
#include "http/FileRequestHandler.h"
#include "http/RoutingCache.h"
#include "platform/UrlPath.h"

namespace quorbel {

namespace {

using web::http::http_request;

/// A request as a browser sends it.
http_request BrowserRequest(const std::string& target) {
    http_request request(web::http::methods::GET);
    request.set_request_uri(web::uri(target));
    request.headers().add("Host", "localhost:8080");
    request.headers().add("User-Agent",
                          "Mozilla/5.0 (X11; Linux x86_64; rv:128.0) Gecko/20100101 Firefox/128.0");
    request.headers().add("Accept", "text/html,application/xhtml+xml,application/xml;q=0.9,*/*;q=0.8");
    request.headers().add("Accept-Language", "en-GB,en;q=0.5");
    request.headers().add("Accept-Encoding", "gzip, deflate");
    return request;
}

void ParseUrlPath(benchmark::State& state, const std::string& encoded) {
    for (auto _ : state) benchmark::DoNotOptimize(CUrlPath::Parse(encoded));
}
BENCHMARK_CAPTURE(ParseUrlPath, root, "/");
BENCHMARK_CAPTURE(ParseUrlPath, plain, "/archive/letters/1902-09-cable");
BENCHMARK_CAPTURE(ParseUrlPath, encoded, "/archive/x/../1954-mar%C3%A9es%20et%20vents");

/// A listener's cache that has routed so many paths of a site already.
class CFilledCache {
 public:
    explicit CFilledCache(std::int64_t paths) {
        const auto handler =
            std::make_shared<CFileRequestHandler>(files, L"/site/page.GET.html", L"text/html", L"",
                                                  CacheClass::Development, CFileRequestHandler::kNoRangeCap);
        for (std::int64_t i = 0; i < paths; ++i) {
            Ignore(cache.Insert(AccessLevel::User, FromUtf8(Path(i)) + L".GET", handler, cache.Generation()));
        }
    }
    static std::string Path(std::int64_t number) { return "/site/section/page" + std::to_string(number); }

    CFileCache files{SystemClock()};
    CRoutingCache cache;
};

/// Building the key of a parsed path, and finding it.
void FindRoutedKey(benchmark::State& state) {
    const CFilledCache filled(state.range(0));
    std::vector<std::wstring> paths;
    for (std::int64_t i = 0; i < std::min<std::int64_t>(state.range(0), 1'000); ++i) {
        paths.push_back(FromUtf8(CFilledCache::Path(i * 7919 % state.range(0))));
    }
    const http_request request = BrowserRequest("/");
    std::size_t next = 0;
    for (auto _ : state) {
        const std::wstring key = paths[next++ % paths.size()] + L"." + FromUtf8(request.method());
        auto handler = filled.cache.Find(AccessLevel::User, key);
        if (!handler || !*handler) return state.SkipWithError("not found");
        benchmark::DoNotOptimize(handler);
    }
}
BENCHMARK(FindRoutedKey)->Arg(1)->Arg(1'000)->Arg(65'536);

/// From a request's target to its handler, as a listener does it: path, key, cache.
void RouteRequest(benchmark::State& state) {
    const CFilledCache filled(1'000);
    const http_request request = BrowserRequest(CFilledCache::Path(7) + "?view=1");
    for (auto _ : state) {
        const auto path = CUrlPath::Parse(request.relative_uri().path());
        const std::wstring key = std::get<CUrlPath>(path).Text() + L"." + FromUtf8(request.method());
        auto handler = filled.cache.Find(AccessLevel::User, key);
        if (!handler || !*handler) return state.SkipWithError("not found");
        benchmark::DoNotOptimize(handler);
    }
}
BENCHMARK(RouteRequest);

/// A routed file's response: opened, its size read, its headers and stream made, and closed; the body is not
/// read.
void CreateFileResponse(benchmark::State& state, const std::string& range) {
    const CScratchFolder folder;
    folder.Write("page.GET.html", std::string(1024, 'x'));
    CFileCache files(SystemClock());
    CFileRequestHandler handler(files, folder.Text("page.GET.html"), L"text/html", L"",
                                CacheClass::Development, CFileRequestHandler::kNoRangeCap);
    http_request request = BrowserRequest("/page");
    if (!range.empty()) request.headers().add("Range", range);
    for (auto _ : state) {
        const auto response = handler.CreateResponse(request, {}, {});
        benchmark::DoNotOptimize(response->StatusCode());
    }
}
BENCHMARK_CAPTURE(CreateFileResponse, whole, "");
BENCHMARK_CAPTURE(CreateFileResponse, range, "bytes=100-199");

}  // namespace

}  // namespace quorbel
