#include <benchmark/benchmark.h>

#include "bench/ScratchFolder.h"
#include "components/archive/LocalArchive.h"
#include "http/DirectoryMappings.h"
#include "platform/registry/SqliteRegistry.h"

namespace quorbel {

namespace {

/// The local archive with its settings in a registry of its own, and one file to open.
class CArchiveWithFile {
 public:
    CArchiveWithFile()
        : registry(OpenSqliteRegistry(folder.Path()).Value()),
          registration(RegisterLocalArchive(registry->LocalMachine())) {
        folder.Write("letter.txt", std::string(4096, 'x'));
        if (!Succeeded(CreateComInstance(kArchiveFileSystemClass, archive)))
            throw std::runtime_error("no archive");
    }

    CScratchFolder folder;
    std::shared_ptr<IRegistry> registry;
    CComRegistration registration;
    CComPtr<IArchiveFileSystem> archive;
};

/// The text that an archive file's tag stands for.
void EntityTagOfSource(benchmark::State& state) {
    const std::wstring source = L"0:/srv/archive/letters/1902-09-cable.txt-0A1B2C3D-4E5F6071";
    for (auto _ : state) benchmark::DoNotOptimize(EntityTag(source));
}
BENCHMARK(EntityTagOfSource);

/// A file of a directory mapping, from its path to its handler: the tag is made of the file as it is now.
void FindMappedFile(benchmark::State& state, bool isKnownToClient) {
    const CArchiveWithFile opened;
    const TextMap mappings{{L"/docs", L"0" + opened.folder.Text()}};
    CFileCache files(SystemClock());
    const CDirectoryMappings directory(*opened.archive.Get(), files, mappings, 0x100000);
    web::http::http_request request(web::http::methods::GET);
    request.set_request_uri(web::uri("/docs/letter.txt"));
    if (isKnownToClient) {
        const auto first = directory.Find(request, L"/docs/letter.txt");
        if (!first) return state.SkipWithError("not found");
        const auto etag = first->CreateResponse(request, {}, {})->Headers().find(L"ETag");
        request.headers().add("If-None-Match", ToUtf8(etag->second));
    }
    for (auto _ : state) {
        auto handler = directory.Find(request, L"/docs/letter.txt");
        if (!handler) return state.SkipWithError("not found");
        benchmark::DoNotOptimize(handler);
    }
}
BENCHMARK_CAPTURE(FindMappedFile, served, false);
BENCHMARK_CAPTURE(FindMappedFile, notModified, true);

}  // namespace

}  // namespace quorbel
