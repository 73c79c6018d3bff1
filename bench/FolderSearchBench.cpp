#include <benchmark/benchmark.h>
#include <map>

#include "bench/ScratchFolder.h"
#include "platform/folders/FolderSearch.h"

namespace quorbel {

namespace {

/// A temporary folder of so many files, and a search object that follows it.
class CSearchedFolder {
 public:
    explicit CSearchedFolder(std::int64_t files) {
        for (std::int64_t i = 0; i < files; ++i) m_folder.Write(FileName(i), "");
        search = CreateFolderSearch().Value();
        follower = search->Follow(CEvent::Create(EventReset::Auto).Value());
    }

    static std::string FileName(std::int64_t number) { return "page" + std::to_string(number) + ".GET.html"; }
    std::wstring Pattern(const std::string& name) const { return m_folder.Text(name); }

    std::shared_ptr<IFolderSearch> search;
    std::shared_ptr<IFolderFollower> follower;

 private:
    CScratchFolder m_folder;
};

/// Made once for each size: creating 100,000 files takes far longer than searching them.
CSearchedFolder& FolderOf(std::int64_t files) {
    static std::map<std::int64_t, CSearchedFolder> folders;
    return folders.try_emplace(files, files).first->second;
}

/// A name that was never asked for, in a folder that has been listed.
void FindInListedFolder(benchmark::State& state) {
    const std::int64_t files = state.range(0);
    CSearchedFolder& folder = FolderOf(files);
    Ignore(folder.search->Find(folder.Pattern("*"), {}, folder.follower));
    std::vector<std::wstring> patterns;
    for (std::int64_t i = 0; i < std::min<std::int64_t>(files, 10'000); ++i) {
        patterns.push_back(folder.Pattern("page" + std::to_string(i * 7919 % files) + ".GET*"));
    }
    std::size_t next = 0;
    for (auto _ : state) {
        auto matches = folder.search->Find(patterns[next++ % patterns.size()], {}, folder.follower);
        if (matches.names.size() != 1 || !matches.followed) state.SkipWithError("not found");
        benchmark::DoNotOptimize(matches);
    }
}
BENCHMARK(FindInListedFolder)->Arg(10)->Arg(1'000)->Arg(100'000);

/// The very first search in a folder: it is followed and listed.
void ListAndFind(benchmark::State& state) {
    CSearchedFolder& folder = FolderOf(state.range(0));
    const std::wstring pattern = folder.Pattern("page5.GET*");
    for (auto _ : state) {
        state.PauseTiming();
        auto search = CreateFolderSearch().Value();
        state.ResumeTiming();
        benchmark::DoNotOptimize(search->Find(pattern, {}, folder.follower));
        state.PauseTiming();
        // Ending it is not part of the search.
        search.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(ListAndFind)->Arg(10)->Arg(1'000)->Arg(100'000)->Iterations(20)->Unit(benchmark::kMicrosecond);

}  // namespace

}  // namespace quorbel
