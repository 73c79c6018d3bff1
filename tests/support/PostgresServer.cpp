#include "tests/support/PostgresServer.h"

#include <csignal>
#include <pwd.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/Text.h"

/// psqlodbc loses five bytes with each connection, of its own doing.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:psqlodbcw.so\n";
}

namespace quorbel {

namespace {

constexpr int kSecondsToStart = 60;

std::filesystem::path FindPrograms() {
    std::filesystem::path found;
    std::error_code missing;
    for (const auto& version : std::filesystem::directory_iterator("/usr/lib/postgresql", missing)) {
        const auto programs = version.path() / "bin";
        if (std::filesystem::exists(programs / "initdb") && programs > found) found = programs;
    }
    if (found.empty()) throw std::runtime_error("PostgreSQL is not installed");
    return found;
}

/// PostgreSQL does not run for root.
const passwd* OtherUser() {
    if (::geteuid() != 0) return nullptr;
    const passwd* const user = ::getpwnam("postgres");
    return user ? user : ::getpwnam("nobody");
}

/// Starts a program that ends with the thread that starts it.
pid_t Spawn(std::vector<std::string> words, std::vector<std::string> environment) {
    std::vector<std::string> all{"setpriv", "--pdeathsig", "INT"};
    if (const passwd* const user = OtherUser()) {
        all.push_back("--reuid=" + std::to_string(user->pw_uid));
        all.push_back("--regid=" + std::to_string(user->pw_gid));
        all.push_back("--clear-groups");
    }
    all.insert(all.end(), words.begin(), words.end());
    std::vector<char*> arguments;
    for (std::string& word : all) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    std::vector<char*> variables;
    for (std::string& variable : environment) variables.push_back(variable.data());
    variables.push_back(nullptr);
    pid_t process = -1;
    if (::posix_spawnp(&process, "setpriv", nullptr, nullptr, arguments.data(), variables.data()) != 0) {
        throw std::runtime_error("setpriv cannot be run");
    }
    return process;
}

int WaitFor(pid_t process) {
    int status = -1;
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

/// Where a service says that it is ready.
CFileDescriptor ListenAt(const std::filesystem::path& path) {
    CFileDescriptor listener(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    ::unlink(path.c_str());
    const timeval limit{kSecondsToStart, 0};
    ::setsockopt(listener.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    if (::bind(listener.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        throw std::runtime_error("no socket in the temporary folder");
    }
    ::chmod(path.c_str(), 0777);
    return listener;
}

}  // namespace

CPostgresServer::CPostgresServer() : m_programs(FindPrograms()) {
    if (const passwd* const user = OtherUser()) {
        if (::chown(m_folder.Path().c_str(), user->pw_uid, user->pw_gid) != 0) {
            throw std::runtime_error("the temporary folder cannot be given away");
        }
    }
    Create();
    Start();
}

CPostgresServer::~CPostgresServer() {
    Stop();
}

CPostgresServer& CPostgresServer::Shared() {
    static CPostgresServer server;
    return server;
}

void CPostgresServer::Create() {
    const std::string data = m_folder / "data";
    const pid_t made = Spawn({m_programs / "initdb", "-D", data, "-U", "tester", "-A", "trust", "-E", "UTF8",
                              "--locale=C.UTF-8", "--no-sync", "--no-instructions"},
                             {"PATH=/usr/bin:/bin"});
    if (WaitFor(made) != 0) throw std::runtime_error("initdb failed");
    WriteFile(m_folder / "data/pg_hba.conf", "local all guarded scram-sha-256\nlocal all all trust\n");
}

void CPostgresServer::Start() {
    const auto notifications = m_folder / "ready";
    const CFileDescriptor ready = ListenAt(notifications);
    m_process = Spawn({m_programs / "postgres", "-D", m_folder / "data", "-c", "listen_addresses=", "-c",
                       "unix_socket_directories=" + m_folder.Path().string(), "-c", "fsync=off", "-c",
                       "shared_buffers=16MB", "-c", "logging_collector=on", "-c", "timezone=UTC"},
                      {"PATH=/usr/bin:/bin", "NOTIFY_SOCKET=" + notifications.string()});
    char message[256];
    while (true) {
        const ssize_t size = ::recv(ready.Get(), message, sizeof(message), 0);
        if (size < 0 && errno != EINTR) throw std::runtime_error("PostgreSQL does not start");
        if (size > 0 && std::string_view(message, size).find("READY=1") != std::string_view::npos) return;
    }
}

void CPostgresServer::Stop() {
    if (m_process < 0) return;
    ::kill(m_process, SIGQUIT);
    WaitFor(m_process);
    m_process = -1;
}

void CPostgresServer::CreateDatabase(const std::string& name, const std::string& encoding) {
    const pid_t made = Spawn({m_programs / "createdb", "-h", m_folder.Path(), "-U", "tester", "-T",
                              "template0", "-E", encoding, "--locale=C", name},
                             {"PATH=/usr/bin:/bin"});
    if (WaitFor(made) != 0) throw std::runtime_error("createdb failed");
}

void CPostgresServer::Restart() {
    Stop();
    Start();
}

std::wstring CPostgresServer::ConnectionString(const std::wstring& database, const std::wstring& user) const {
    return L"Driver=PostgreSQL Unicode;Server=" + FromUtf8(m_folder.Path().string()) + L";Database=" +
           database + L";Uid=" + user;
}

}  // namespace quorbel
