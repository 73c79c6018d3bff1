#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/types.h>

namespace quorbel {

/// Another process that has the registry of a folder open and does what it is told, one line an order:
///   set PATH          sets the value "n" of a key to 1
///   create PATH       creates a key
///   delete PATH       deletes a key
///   count TIMES       adds 1 to the value "n" of the root so many times, each in a transaction
///   limit BYTES       lets no file of the process grow beyond this size
///   fill PATH         sets a value of 1 MiB
///   set-and-die PATH  like set, and then the process is killed
class CWriterProcess {
 public:
    explicit CWriterProcess(const std::filesystem::path& folder);
    /// Closes the orders and waits for the process's end.
    ~CWriterProcess();
    CWriterProcess(const CWriterProcess&) = delete;
    CWriterProcess& operator=(const CWriterProcess&) = delete;

    /// Gives an order without waiting.
    void Order(const std::string& order);
    /// Waits for the order's result: an error number, or -1 when the process has ended.
    long Result();
    long Do(const std::string& order) {
        Order(order);
        return Result();
    }

 private:
    struct CClose {
        void operator()(std::FILE* stream) const { std::fclose(stream); }
    };
    pid_t m_process = -1;
    std::unique_ptr<std::FILE, CClose> m_orders;
    std::unique_ptr<std::FILE, CClose> m_results;
};

}  // namespace quorbel
