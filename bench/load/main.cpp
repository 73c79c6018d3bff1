// A client that puts a running service under load and checks what it answers. See bench/load/Commands.h.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <sys/resource.h>
#include <unistd.h>

#include "bench/load/Commands.h"

namespace quorbel {

namespace asio = boost::asio;

int Number(const std::string& argument) {
    char* end = nullptr;
    const long number = std::strtol(argument.c_str(), &end, 10);
    if (number < 1 || number > 1'000'000'000 || *end != '\0')
        throw std::runtime_error("no positive number: " + argument);
    return static_cast<int>(number);
}

void Spawn(asio::io_context& context, asio::awaitable<void> task) {
    asio::co_spawn(context, std::move(task), [](const std::exception_ptr& exception) {
        if (exception) std::rethrow_exception(exception);
    });
}

asio::awaitable<void> WaitForEndOfInput() {
    asio::posix::stream_descriptor input(co_await asio::this_coro::executor, ::dup(STDIN_FILENO));
    std::array<char, 64> dropped;
    const auto buffer = asio::buffer(dropped);
    try {
        for (;;) co_await input.async_read_some(buffer, asio::use_awaitable);
    } catch (const boost::system::system_error&) {
    }
}

double Percentile(std::vector<double>& samples, double share) {
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    const auto rank = static_cast<std::size_t>(std::ceil(share * static_cast<double>(samples.size())));
    return samples[std::clamp<std::size_t>(rank, 1, samples.size()) - 1];
}

namespace {

struct CCommand {
    const char* name;
    std::size_t least;
    std::size_t most;
    int (*run)(const Arguments&);
    const char* usage;
};
constexpr std::array kCommands{
    CCommand{"idle", 3, 3, RunIdle, "idle URL TARGET COUNT"},
    CCommand{"crowd", 4, 4, RunCrowd, "crowd URL SMALL LARGE COUNT"},
    CCommand{"ask", 5, 5, RunAsk, "ask URL TARGET BYTES CONNECTIONS SECONDS"},
    CCommand{"soak", 4, 100, RunSoak, "soak SITE SECONDS CONNECTIONS URL..."},
};

void RaiseDescriptorLimit() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

int Run(Arguments arguments) {
    const std::string name = arguments.empty() ? "" : arguments.front();
    if (!arguments.empty()) arguments.erase(arguments.begin());
    for (const CCommand& command : kCommands) {
        if (name == command.name && arguments.size() >= command.least && arguments.size() <= command.most)
            return command.run(arguments);
    }
    std::fprintf(stderr, "usage:\n");
    for (const CCommand& command : kCommands) std::fprintf(stderr, "  bench_load %s\n", command.usage);
    return 2;
}

}  // namespace

}  // namespace quorbel

int main(int count, char** arguments) {
    try {
        quorbel::RaiseDescriptorLimit();
        return quorbel::Run({arguments + 1, arguments + count});
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "bench_load: %s\n", exception.what());
        return 1;
    }
}
