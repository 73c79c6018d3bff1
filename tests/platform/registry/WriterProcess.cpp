#include "tests/platform/registry/WriterProcess.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <iostream>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/Text.h"
#include "platform/registry/SqliteRegistry.h"

namespace quorbel {

namespace {

constexpr const char* kFolderVariable = "QUORBEL_TEST_WRITER_FOLDER";
constexpr int kResults = 3;

ErrorCode Count(IRegistry& registry, int times) {
    const auto root = registry.LocalMachine();
    for (int i = 0; i < times; ++i) {
        const auto transaction = registry.Begin();
        if (!transaction.IsOk()) return transaction.Error();
        const CResult<CValue> value = root->Query(L"n");
        const std::uint32_t number = value.IsOk() ? value.Value().AsNumber32().value_or(0) : 0;
        ErrorCode error = root->Set(L"n", CValue::FromNumber32(number + 1));
        if (error == ErrorCode::Success) error = transaction.Value()->Commit();
        if (error != ErrorCode::Success) return error;
    }
    return ErrorCode::Success;
}

ErrorCode Limit(rlim_t bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, bytes};
    return ::setrlimit(RLIMIT_FSIZE, &limit) == 0 ? ErrorCode::Success : ErrorCode::GenFailure;
}

ErrorCode Obey(IRegistry& registry, const std::string& order, const std::string& argument) {
    const auto root = registry.LocalMachine();
    const std::wstring path = FromUtf8(argument);
    if (order == "create") return root->Create(path).Error();
    if (order == "delete") return root->DeleteTree(path);
    if (order == "count") return Count(registry, std::stoi(argument));
    if (order == "limit") return Limit(std::stoul(argument));
    const auto key = root->Open(path, KeyAccess::ReadWrite);
    if (!key.IsOk()) return key.Error();
    if (order == "fill") return key.Value()->Set(L"n", {ValueType::Binary, std::string(1 << 20, 'x')});
    const ErrorCode error = key.Value()->Set(L"n", CValue::FromNumber32(1));
    if (order == "set-and-die") std::raise(SIGKILL);
    return error;
}

}  // namespace

/// Not a test: what the other process runs, this very program started with this test alone.
TEST(RegistryWriter, DISABLED_FollowsOrders) {
    const char* folder = std::getenv(kFolderVariable);
    if (!folder) GTEST_SKIP() << "runs in a process of its own only";
    CRegistryOptions options;
    options.busyTimeout = std::chrono::minutes(1);
    const auto registry = OpenSqliteRegistry(folder, options);
    std::string order;
    std::string argument;
    while (std::cin >> order >> argument) {
        const ErrorCode error = registry.IsOk() ? Obey(*registry.Value(), order, argument) : registry.Error();
        ::dprintf(kResults, "%u\n", ToNumber(error));
    }
}

CWriterProcess::CWriterProcess(const std::filesystem::path& folder) {
    int orders[2];
    int results[2];
    if (::pipe2(orders, O_CLOEXEC) != 0 || ::pipe2(results, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    m_orders.reset(::fdopen(orders[1], "w"));
    m_results.reset(::fdopen(results[0], "r"));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, orders[0], STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, results[1], kResults);
    std::string words[] = {"/proc/self/exe", "--gtest_also_run_disabled_tests",
                           "--gtest_filter=RegistryWriter.*", kFolderVariable + ("=" + folder.string())};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    std::vector<char*> environment{words[3].data()};
    for (char** variable = environ; *variable; ++variable) {
        // The process's own test selection and report are not the other's.
        if (!std::string_view(*variable).starts_with("GTEST_")) environment.push_back(*variable);
    }
    environment.push_back(nullptr);
    if (::posix_spawn(&m_process, words[0].c_str(), &actions, nullptr, arguments, environment.data()) != 0) {
        throw std::runtime_error("no process");
    }
    posix_spawn_file_actions_destroy(&actions);
    ::close(orders[0]);
    ::close(results[1]);
}

CWriterProcess::~CWriterProcess() {
    m_orders.reset();
    ::waitpid(m_process, nullptr, 0);
}

void CWriterProcess::Order(const std::string& order) {
    std::fprintf(m_orders.get(), "%s\n", order.c_str());
    std::fflush(m_orders.get());
}

long CWriterProcess::Result() {
    long result = -1;
    return std::fscanf(m_results.get(), "%ld", &result) == 1 ? result : -1;
}

}  // namespace quorbel
