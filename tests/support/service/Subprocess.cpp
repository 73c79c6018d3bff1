#include "tests/support/service/Subprocess.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>

extern char** environ;

namespace quorbel {

namespace {

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

CSubprocess::CSubprocess(const std::string& program, const std::vector<std::string>& arguments,
                         const Environment& environment, const std::filesystem::path& output,
                         const std::filesystem::path& error, const std::filesystem::path& input,
                         std::optional<std::uint64_t> largestFile, std::optional<int> listening,
                         StartedBy startedBy) {
    std::vector<std::string> words;
    // Only the process itself knows the identifier that must stand in the variables.
    std::string variablesOfItself;
    if (listening) variablesOfItself += "LISTEN_PID=$$ LISTEN_FDS=1 ";
    if (startedBy == StartedBy::ServiceManager) variablesOfItself += "SYSTEMD_EXEC_PID=$$ ";
    if (!variablesOfItself.empty()) words = {"/bin/sh", "-c", variablesOfItself + "exec \"$@\"", "sh"};
    if (largestFile) {
        words.insert(words.end(), {"/usr/bin/prlimit", "--fsize=" + std::to_string(*largestFile)});
    }
    words.push_back(std::string(QUORBEL_PROGRAMS) + "/" + program);
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> variables;
    for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
    for (char** variable = environ; *variable; ++variable) variables.emplace_back(*variable);

    posix_spawn_file_actions_t files;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawn_file_actions_addopen(&files, 0, input.c_str(), O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&files, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::posix_spawn_file_actions_addopen(&files, 2, error.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (listening) ::posix_spawn_file_actions_adddup2(&files, *listening, 3);
    const int result = ::posix_spawn(&m_process, words[0].c_str(), &files, nullptr, Pointers(words).data(),
                                     Pointers(variables).data());
    ::posix_spawn_file_actions_destroy(&files);
    if (result != 0) throw std::runtime_error("cannot start " + words[0]);
}

CSubprocess::~CSubprocess() {
    if (m_process < 0) return;
    Signal(SIGKILL);
    Wait();
}

void CSubprocess::Signal(int number) const {
    ::kill(m_process, number);
}

int CSubprocess::Wait() {
    int status = 0;
    ::waitpid(m_process, &status, 0);
    m_process = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int RunProgram(const std::string& program, const std::vector<std::string>& arguments,
               const Environment& environment) {
    return CSubprocess(program, arguments, environment).Wait();
}

}  // namespace quorbel
