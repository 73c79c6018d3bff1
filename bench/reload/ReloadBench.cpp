// The time from a write to the configuration to its being served, on real listeners.
#include <charconv>
#include <chrono>
#include <cpprest/containerstream.h>
#include <cstdio>
#include <pplx/threadpool.h>

#include "LibService/ServiceLogger.h"
#include "bench/ScratchFolder.h"
#include "components/archive/LocalArchive.h"
#include "components/http_server/HttpServer.h"
#include "http/RequestHandlerFactory.h"
#include "platform/File.h"
#include "platform/registry/SqliteRegistry.h"
#include "service/QuorbelHTTPService.h"
#include "tests/support/service/HttpConnection.h"

namespace quorbel {

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr wchar_t kHostsPath[] = L"Software\\Quorbel\\Quorbel HTTP Service\\Hosts";
/// How long the service collects changes before it looks at its hosts.
constexpr Milliseconds kPause{100};
/// Between two looks at the reply; adds half of it to what is measured.
constexpr std::chrono::microseconds kBetweenRequests{200};
/// Between a reload and the next write, so that none runs into the other.
constexpr std::chrono::milliseconds kBetweenWrites{30};
constexpr std::chrono::seconds kPatience{30};

class CTextResponse final : public CHTTPServer::CRequestHandler::CResponse {
 public:
    explicit CTextResponse(const std::wstring& text) : CResponse(CacheClass::Dynamic) {
        m_body = concurrency::streams::bytestream::open_istream(ToUtf8(text));
    }
    std::uint16_t StatusCode() override { return 200; }
};

/// Answers with the host's value "Written".
class CWrittenHandler final : public CHTTPServer::CRequestHandler {
 public:
    std::shared_ptr<CResponse> CreateResponse(const web::http::http_request&, const UserIdentity&,
                                              const TextMap& parameters) override {
        const auto value = parameters.find(L"Registry$Written");
        return std::make_shared<CTextResponse>(value == parameters.end() ? L"" : value->second);
    }
};

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error(what);
}

void Check(ErrorCode error, const char* what) {
    if (error != ErrorCode::Success)
        Fail(std::string(what) + ": error " + std::to_string(static_cast<long>(error)));
}

/// A service in this process with so many open hosts, and a writer with a connection of its own to the
/// registry, as another process would have it.
class CServedHosts {
 public:
    explicit CServedHosts(int hosts) : m_port(FreePort()) {
        std::filesystem::create_directory(m_folder.Path("registry"));
        std::filesystem::create_directory(m_folder.Path("root"));
        m_folder.Write("root/written.GET.written", "");
        m_folders = CreateFolderSearch().Value();
        m_stop = CEvent::Create(EventReset::Manual).Value();
        m_localMachine = Open()->LocalMachine();
        m_archive.reset(new CComRegistration(RegisterLocalArchive(m_localMachine)));
        m_server = IHttpServer::Start({m_localMachine, SystemClock(),
                                       [](const std::wstring& problem) { Fail(ToUtf8(problem)); }})
                       .Value();
        m_written = Open();
        Configure(hosts);
        m_service = std::make_unique<CQuorbelHTTPService>(
            CHTTPServer::Environment{*m_folders, m_trace, SystemClock()}, *m_localMachine, m_stop);
        m_thread = std::thread([this] {
            m_status = m_service->Run();
            m_hasEnded = true;
        });
    }
    ~CServedHosts() {
        m_stop->Set();
        m_thread.join();
    }
    CServedHosts(const CServedHosts&) = delete;
    CServedHosts& operator=(const CServedHosts&) = delete;

    /// Throws when the service ends instead.
    void WaitUntilOpen(int hosts) const {
        while (m_service->GetCounters().built < static_cast<std::uint64_t>(hosts)) {
            if (m_hasEnded) Fail("the service did not open: " + ToUtf8(m_status.Text()));
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        // The pass that follows the start.
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }

    static std::string Name(int number) {
        return "127.1." + std::to_string(number / 250) + "." + std::to_string(number % 250 + 1);
    }
    CHttpConnection Connect(int number) const { return CHttpConnection(m_port, Name(number).c_str()); }
    std::unique_ptr<IKey> Key(int number) const { return HostKey(*m_written->LocalMachine(), number); }
    std::uint64_t Updated() const { return m_service->GetCounters().updated; }

 private:
    std::shared_ptr<IRegistry> Open() const { return OpenSqliteRegistry(m_folder.Path("registry")).Value(); }
    static std::unique_ptr<IKey> HostKey(IKey& localMachine, int number) {
        return localMachine.Create(std::wstring(kHostsPath) + L"\\" + FromUtf8(Name(number))).Value();
    }
    void Configure(int hosts) {
        const auto transaction = m_written->Begin().Value();
        for (int i = 0; i < hosts; ++i) {
            const auto key = Key(i);
            Check(key->Set(L"Protocol", CValue::FromText(L"http")), "configuration");
            Check(key->Set(L"Port", CValue::FromText(std::to_wstring(m_port))), "configuration");
            Check(key->Set(L"User Root", CValue::FromText(m_folder.Text("root"))), "configuration");
        }
        Check(transaction->Commit(), "configuration");
    }

    const CScratchFolder m_folder;
    const int m_port;
    CServiceLogger m_trace;
    std::shared_ptr<IFolderSearch> m_folders;
    std::shared_ptr<CEvent> m_stop;
    std::shared_ptr<IKey> m_localMachine;
    std::unique_ptr<CComRegistration> m_archive;
    std::shared_ptr<IRegistry> m_written;
    std::unique_ptr<IHttpServer> m_server;
    std::unique_ptr<CQuorbelHTTPService> m_service;
    std::thread m_thread;
    CStatus m_status;
    std::atomic<bool> m_hasEnded{false};
};

struct CSample {
    Milliseconds write;    ///< the commit of the value
    Milliseconds reload;   ///< from the commit to the first reply with the new value
    Milliseconds request;  ///< the last round trip, which is part of the reload
};

/// Writes one value of a host and asks on a kept-alive connection until it is served.
CSample Reload(const CServedHosts& hosts, int host, const std::string& value) {
    CHttpConnection connection = hosts.Connect(host);
    const auto key = hosts.Key(host);
    const auto ask = [&connection] {
        const auto reply = connection.Request("GET", "/written");
        if (!reply || reply->status != 200) Fail("no reply");
        return reply->body;
    };
    if (ask() == value) Fail("served before it was written");
    CSample sample{};
    const auto begin = Clock::now();
    Check(key->Set(L"Written", CValue::FromText(FromUtf8(value))), "write");
    const auto committed = Clock::now();
    for (;;) {
        const auto asked = Clock::now();
        const bool isServed = ask() == value;
        const auto answered = Clock::now();
        if (isServed) {
            sample = {committed - begin, answered - committed, answered - asked};
            return sample;
        }
        if (answered - committed > kPatience) Fail("the value was never served");
        std::this_thread::sleep_for(kBetweenRequests);
    }
}

/// The value that `share` of the samples do not exceed (nearest rank).
double Percentile(const std::vector<CSample>& samples, Milliseconds CSample::*figure, double share) {
    std::vector<double> figures;
    for (const CSample& sample : samples) figures.push_back((sample.*figure).count());
    std::sort(figures.begin(), figures.end());
    const auto rank = static_cast<std::size_t>(share * static_cast<double>(figures.size()) + 0.999999);
    return figures[std::clamp<std::size_t>(rank, 1, figures.size()) - 1];
}

void Measure(int hosts, int writes) {
    const CServedHosts served(hosts);
    served.WaitUntilOpen(hosts);
    std::vector<CSample> samples;
    const std::uint64_t updated = served.Updated();
    for (int i = 0; i < writes; ++i) {
        // Hosts are looked at in order: every part of the order is met.
        samples.push_back(Reload(served, i * 389 % hosts, std::to_string(i + 1)));
        std::this_thread::sleep_for(kBetweenWrites);
    }
    if (served.Updated() - updated != static_cast<std::uint64_t>(writes))
        Fail("a write did not rebuild one host");
    const double median = Percentile(samples, &CSample::reload, 0.5);
    const double late = Percentile(samples, &CSample::reload, 0.99);
    std::printf("%6d %7d %9.2f %9.2f %14.2f %10.2f %13.2f %15.2f\n", hosts, writes, median, late,
                median - kPause.count(), late - kPause.count(), Percentile(samples, &CSample::write, 0.5),
                Percentile(samples, &CSample::request, 0.5));
    std::fflush(stdout);
}

int Number(std::string_view text, int most) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 1 || number > most) {
        Fail("no number from 1 to " + std::to_string(most) + ": " + std::string(text));
    }
    return number;
}

void Run(const std::vector<std::string_view>& arguments) {
    Check(RaiseOpenFileLimit(), "limit of open files");
    crossplat::threadpool::initialize_with_threads(16);
    CRequestHandlerFactory::Register(L"written", [](const std::wstring&, const std::wstring&) {
        return std::make_shared<CWrittenHandler>();
    });
    const int writes = arguments.empty() ? 100 : Number(arguments[0], 100'000);
    std::vector<int> hosts{1, 1'000};
    if (arguments.size() > 1) hosts.clear();
    for (std::size_t i = 1; i < arguments.size(); ++i) hosts.push_back(Number(arguments[i], 10'000));
    std::printf(
        "Milliseconds from the commit of one value to the first reply with it:\n"
        " hosts  writes    median       p99  without pause:  median   p99  commit median  request median\n");
    for (int count : hosts) Measure(count, writes);
}

}  // namespace

}  // namespace quorbel

/// bench_reload [WRITES [HOSTS...]]
int main(int count, char** arguments) {
    try {
        quorbel::Run({arguments + 1, arguments + count});
        return 0;
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "bench_reload: %s\n", exception.what());
        return 1;
    }
}
