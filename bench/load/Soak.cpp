#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include "bench/load/Commands.h"
#include "bench/load/Connection.h"

namespace quorbel {

namespace asio = boost::asio;
using asio::awaitable;
using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

namespace {

/// A request that is not answered so long after the end of the load has failed.
constexpr seconds kPatience{60};
constexpr int kMostBatches = 20;
constexpr int kMostPipelined = 6;
constexpr int kMostShown = 10;

std::string ReadWhole(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct CFile {
    std::string target;
    std::string content;
};

/// A request and the reply that it must have.
struct CExchange {
    std::string request;
    int status = 0;
    std::string_view body;
    std::string range;    ///< of the field Content-Range
    bool isLast = false;  ///< the service must close the connection after the reply
};

enum class Kind { Small, Medium, Large, Range, Missing, Form };
constexpr std::array kNames{"1k", "100k", "1m", "ranges", "missing", "forms"};
/// How often a kind is asked for, among the sum of all.
constexpr std::array kWeights{40, 15, 5, 15, 10, 15};

class CSoak {
 public:
    CSoak(const Arguments& arguments)
        : m_connections(Number(arguments[2])), m_end(Clock::now() + seconds(Number(arguments[1]))) {
        for (const char* name : {"1k", "100k", "1m", "form"})
            m_files.push_back({"/" + std::string(name), ReadWhole(arguments[0] + "/" + name)});
        for (std::size_t i = 3; i < arguments.size(); ++i) m_servers.push_back(CServer::Parse(arguments[i]));
    }

    int Run() {
        for (const CServer& server : m_servers) {
            for (int i = 0; i < m_connections; ++i) Spawn(m_context, Load(server));
        }
        m_context.run_until(m_end + kPatience);
        const int unfinished = m_connections * static_cast<int>(m_servers.size()) - m_finished;
        if (unfinished > 0) std::fprintf(stderr, "%d connections wait for a reply\n", unfinished);
        m_failed += unfinished;
        std::printf("requests");
        for (std::size_t i = 0; i < kNames.size(); ++i) std::printf(" %s=%ld", kNames[i], m_answered[i]);
        std::printf(" connections=%ld slowest=%.0fms failed=%ld\n", m_opened,
                    std::chrono::duration<double, std::milli>(m_slowest).count(), m_failed);
        return m_failed == 0 ? 0 : 1;
    }

 private:
    int Random(int least, int most) { return std::uniform_int_distribution(least, most)(m_random); }

    /// One connection after the other.
    awaitable<void> Load(const CServer& server) {
        while (Clock::now() < m_end) {
            std::string failure;
            try {
                co_await Converse(server);
            } catch (const std::exception& exception) {
                failure = exception.what();
            }
            if (!failure.empty() && ++m_failed <= kMostShown)
                std::fprintf(stderr, "%s, port %d: %s\n", server.name.c_str(), server.port, failure.c_str());
        }
        ++m_finished;
    }

    awaitable<void> Converse(const CServer& server) {
        CConnection connection(m_context, server);
        co_await connection.Open();
        ++m_opened;
        const int batches = Random(1, kMostBatches);
        const bool closes = Random(0, 1) == 1;
        for (int i = 1; i <= batches && Clock::now() < m_end; ++i) {
            const bool isLast = closes && i == batches;
            co_await Exchange(connection, server, Random(1, kMostPipelined), isLast);
            if (isLast && !co_await connection.WaitForEnd()) throw std::runtime_error("bytes after the end");
        }
    }

    /// Sends so many requests at once and receives the replies.
    awaitable<void> Exchange(CConnection& connection, const CServer& server, int count, bool closes) {
        std::vector<std::pair<Kind, CExchange>> batch;
        std::string requests;
        for (int i = 1; i <= count; ++i) {
            const Kind kind = RandomKind();
            batch.emplace_back(kind, Make(kind, server, closes && i == count));
            requests += batch.back().second.request;
        }
        const Clock::time_point begin = Clock::now();
        co_await connection.Send(requests);
        for (const auto& [kind, exchange] : batch) {
            const CReply reply = co_await connection.Receive();
            Check(exchange, reply);
            m_answered[static_cast<std::size_t>(kind)] += 1;
        }
        m_slowest = std::max(m_slowest, Clock::now() - begin);
    }

    Kind RandomKind() {
        return static_cast<Kind>(std::discrete_distribution<int>(kWeights.begin(), kWeights.end())(m_random));
    }

    CExchange Make(Kind kind, const CServer& server, bool isLast) {
        const std::string lines = isLast ? "Connection: close\r\n" : "";
        const auto get = [&](const std::string& target) { return server.Head("GET", target, lines); };
        switch (kind) {
            case Kind::Small: return {get(m_files[0].target), 200, m_files[0].content, "", isLast};
            case Kind::Medium: return {get(m_files[1].target), 200, m_files[1].content, "", isLast};
            case Kind::Large: return {get(m_files[2].target), 200, m_files[2].content, "", isLast};
            case Kind::Range:
                return MakeRange(m_files[static_cast<std::size_t>(Random(0, 2))], server, isLast);
            case Kind::Missing:
                // The service remembers what it did not find: ever new names would look like growth.
                return {get("/missing/" + std::to_string(Random(1, 1'000))), 404, "", "", isLast};
            case Kind::Form: return MakeForm(m_files[3], server, isLast);
        }
        throw std::logic_error("no such kind");
    }

    CExchange MakeRange(const CFile& file, const CServer& server, bool isLast) {
        const int size = static_cast<int>(file.content.size());
        const int first = Random(0, size - 1);
        const int last = Random(first, size - 1);
        const std::string range = std::to_string(first) + "-" + std::to_string(last);
        const std::string lines = "Range: bytes=" + range + "\r\n" + (isLast ? "Connection: close\r\n" : "");
        const auto begin = static_cast<std::size_t>(first);
        return {server.Head("GET", file.target, lines), 206,
                std::string_view(file.content).substr(begin, static_cast<std::size_t>(last) - begin + 1),
                "bytes " + range + "/" + std::to_string(size), isLast};
    }

    CExchange MakeForm(const CFile& file, const CServer& server, bool isLast) {
        const std::string form =
            "name=" + std::string(static_cast<std::size_t>(Random(1, 5'000)), 'n') + "&x=1";
        const std::string lines = "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                                  std::to_string(form.size()) + "\r\n" +
                                  (isLast ? "Connection: close\r\n" : "");
        return {server.Head("POST", file.target, lines) + form, 200, file.content, "", isLast};
    }

    static void Check(const CExchange& expected, const CReply& reply) {
        const std::string request = expected.request.substr(0, expected.request.find("\r\n"));
        if (reply.status != expected.status)
            throw std::runtime_error(request + ": " + reply.head.substr(0, reply.head.find("\r\n")));
        // The service may say something with an error.
        if (expected.status == 404) return;
        if (reply.body != expected.body) throw std::runtime_error(request + ": wrong body");
        if (reply.Field("content-range") != expected.range)
            throw std::runtime_error(request + ": wrong range " + reply.Field("content-range"));
        if ((reply.Field("connection") == "close") != expected.isLast)
            throw std::runtime_error(request + ": Connection: " + reply.Field("connection"));
    }

    std::vector<CFile> m_files;
    std::vector<CServer> m_servers;
    const int m_connections;
    const Clock::time_point m_end;
    std::mt19937 m_random{1};
    std::array<long, kNames.size()> m_answered{};
    long m_opened = 0;
    long m_failed = 0;
    int m_finished = 0;
    Clock::duration m_slowest{};
    asio::io_context m_context{1};
};

}  // namespace

int RunSoak(const Arguments& arguments) {
    return CSoak(arguments).Run();
}

}  // namespace quorbel
