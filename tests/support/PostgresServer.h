#pragma once

#include <filesystem>
#include <string>
#include <sys/types.h>

#include "tests/support/TemporaryFolder.h"

namespace quorbel {

/// A server of the installed PostgreSQL, with its files and its only socket in a temporary folder; it ends
/// with the program. Throws std::runtime_error when PostgreSQL is not installed or does not start.
class CPostgresServer {
 public:
    CPostgresServer();
    ~CPostgresServer();
    CPostgresServer(const CPostgresServer&) = delete;
    CPostgresServer& operator=(const CPostgresServer&) = delete;

    /// The one that all tests of the program use, made at the first call.
    static CPostgresServer& Shared();

    /// For ODBC. Users are let in without a password, but for "guarded".
    std::wstring ConnectionString(const std::wstring& database = L"postgres",
                                  const std::wstring& user = L"tester") const;
    /// A database whose texts are in another encoding.
    void CreateDatabase(const std::string& name, const std::string& encoding);
    /// Ends all connections at once.
    void Restart();

 private:
    void Create();
    void Start();
    void Stop();

    CTemporaryFolder m_folder;
    std::filesystem::path m_programs;
    pid_t m_process = -1;
};

}  // namespace quorbel
