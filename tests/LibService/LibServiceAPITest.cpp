#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include "LibService/LibServiceAPI.h"
#include "LibService/WorkItems.h"
#include "LibService/api/ServiceApiClient.h"
#include "LibService/api/ServiceApiMessages.h"
#include "LibService/trace/TraceArguments.h"
#include "tests/support/EventRecorder.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

using namespace service_api;
using Bytes = std::vector<std::uint8_t>;
using std::chrono::milliseconds;

constexpr std::uint32_t kRecord = 0x00010000;
constexpr std::uint32_t kTwoArguments = 0xC00100CF;

/// A listener over a logger, in process, and clients of it.
class LibServiceAPI : public testing::Test, public CTraceLoggable {
 public:
    const char* TraceName() const override { return "A name of many letters"; }

 protected:
    LibServiceAPI() {
        ::chmod(m_root.Path().c_str(), 0711);
        std::filesystem::create_directory(m_root / "pipe");
        EXPECT_TRUE(m_trace.LoadMessages(QUORBEL_PROGRAMS "/TrcQBHTTPService.dll").IsOk());
        Start();
    }
    ~LibServiceAPI() override { Stop(); }

    void Start() {
        m_work = CWorkItems::Create(*m_threads).Value();
        m_listener = std::make_unique<CServiceAPIListener>(
            m_root / "pipe", L"Test", "", m_trace, SystemClock(),
            [this](std::unique_ptr<CServiceAPIConnection> connection) {
                const auto shared = std::shared_ptr<CServiceAPIConnection>(std::move(connection));
                return m_work->Run([shared](CEvent& stop) { return shared->Serve(stop); }, "APIConnection");
            });
        EXPECT_TRUE(m_work->Run([this](CEvent& stop) { return m_listener->Run(stop); }, "APIServer").IsOk());
        while (!Connect()) std::this_thread::yield();
    }
    void Stop() {
        m_work->Stop();
        m_work->Wait();
    }

    std::unique_ptr<CPipeConnection> Connect() {
        auto pipe = CPipeConnection::Connect(m_root / "pipe", "Quorbel.Test");
        return pipe.IsOk() ? std::move(pipe).Value() : nullptr;
    }
    std::unique_ptr<CServiceApiClient> Client() {
        return CServiceApiClient::Connect(m_root.Path(), L"Test").Value();
    }
    void Trace(int count) {
        for (int i = 0; i < count; ++i) m_trace.Trace(*this, kRecord);
    }

    static Bytes Request(std::uint32_t code, std::uint32_t room, const Bytes& area = {}) {
        Bytes request(kSmallestRequest, 0xEE);
        Put(request, kRequestId, 0x0102030405060708, 8);
        Put(request, kControlCode, code, 4);
        Put(request, kInputLength, 0, 4);
        Put(request, kOutputLength, room, 4);
        std::copy(area.begin(), area.end(), request.begin() + kDataArea);
        return request;
    }
    static Bytes RecordsRequest(std::uint64_t first, std::uint32_t wait, std::uint32_t room) {
        Bytes area(kWaitTime + 4, 0xEE);
        Put(area, kFirstRecord, first, 8);
        Put(area, kWaitTime, wait, 4);
        return Request(static_cast<std::uint32_t>(ControlCode::ReadRecords), room, area);
    }
    /// Sends a message and gives the reply.
    Bytes Ask(CPipeConnection& pipe, const Bytes& message) {
        EXPECT_EQ(pipe.WriteMessage({message}, *m_never), ErrorCode::Success);
        auto reply = pipe.ReadMessage(*m_never);
        EXPECT_TRUE(reply.IsOk());
        return reply.IsOk() ? std::move(reply).Value() : Bytes(kReplyHead + kReplyTail);
    }
    static std::uint32_t Status(const Bytes& reply) { return static_cast<std::uint32_t>(Get(reply, 8, 4)); }
    static Bytes Data(const Bytes& reply) {
        EXPECT_EQ(Get(reply, 0, 8), 0x0102030405060708U);
        EXPECT_EQ(Get(reply, 12, 4), reply.size() - kReplyHead - kReplyTail);
        EXPECT_EQ(Get(reply, reply.size() - kReplyTail, 8), 0U);
        return {reply.begin() + kReplyHead, reply.end() - kReplyTail};
    }

    CRecordedEventLog m_events;
    CTemporaryFolder m_root;
    const std::shared_ptr<CEvent> m_never = CEvent::Create(EventReset::Manual).Value();
    CServiceLogger m_trace{"Test"};
    const std::unique_ptr<CThreadSet> m_threads = CThreadSet::Create(SystemClock()).Value();
    std::unique_ptr<CWorkItems> m_work;
    std::unique_ptr<CServiceAPIListener> m_listener;
};

TEST_F(LibServiceAPI, AnswersWithTheBytesOfTheRecords) {
    m_trace.Trace(*this, kRecord);
    m_trace.Trace(*this, kTwoArguments, {L"PUT", L"/x"});
    const auto first = m_trace.Read(0).value();
    const auto second = m_trace.Read(1).value();
    const auto pipe = Connect();
    Bytes expected(kEntries + 2 * kEntrySize + 11);
    Put(expected, 0, 2, 8);
    const auto entries = std::span(expected).subspan(kEntries);
    Put(entries, 0, 0, 8);
    Put(entries, 8, first.time, 8);
    Put(entries, 16, kRecord, 4);
    Put(entries, 24, first.object, 8);
    Put(entries, 40, 1, 8);
    Put(entries, 48, second.time, 8);
    Put(entries, 56, kTwoArguments, 4);
    Put(entries, 64, first.object, 8);
    Put(entries, 72, 11, 4);
    const Bytes arguments = {1, 0, 3, 'P', 'U', 'T', 1, 0, 2, '/', 'x'};
    std::copy(arguments.begin(), arguments.end(), entries.begin() + 80);
    EXPECT_EQ(Data(Ask(*pipe, RecordsRequest(0, 0, 4096))), expected);
    // Each entry must be strictly smaller than the room that is left.
    const auto size = static_cast<std::uint32_t>(expected.size());
    EXPECT_EQ(Data(Ask(*pipe, RecordsRequest(0, 0, size))).size(), kEntries + kEntrySize);
    EXPECT_EQ(Data(Ask(*pipe, RecordsRequest(0, 0, size + 1))), expected);
    EXPECT_EQ(Data(Ask(*pipe, RecordsRequest(0, 0, kEntries + kEntrySize))).size(), kEntries);
    EXPECT_EQ(Data(Ask(*pipe, RecordsRequest(0, 5000, 0))), (Bytes{2, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Data(Ask(*pipe, RecordsRequest(2, 1, 4096))).size(), kEntries);
}

TEST_F(LibServiceAPI, ResolvesNamesAndEchoesWhatItDoesNotKnow) {
    Trace(1);
    const auto pipe = Connect();
    const auto code = static_cast<std::uint32_t>(ControlCode::ObjectName);
    Bytes area(24, 0xEE);
    Put(area, kObjectKey, m_trace.Read(0)->object, 8);
    Bytes reply = Ask(*pipe, Request(code, 24, area));
    EXPECT_EQ(Status(reply), 0U);
    const Bytes named = Data(reply);
    EXPECT_EQ(std::string(named.begin() + 8, named.end()), "A name of many l");
    // What nothing filled is zero, however much room there is.
    reply = Ask(*pipe, Request(code, 5000, area));
    EXPECT_EQ(Data(reply).size(), 5000U);
    EXPECT_EQ(Data(reply)[kSmallestRequest - kDataArea - 1], 0xEE);
    EXPECT_EQ(std::count(reply.begin() + kReplyHead + kSmallestRequest - kDataArea, reply.end(), 0),
              static_cast<std::ptrdiff_t>(reply.size() - kReplyHead - kSmallestRequest + kDataArea));
    Put(area, kObjectKey, 1, 8);
    EXPECT_EQ(Data(Ask(*pipe, Request(code, 24, area))), area);

    reply = Ask(*pipe, Request(0x00093000, 10));
    EXPECT_EQ(Status(reply), kInvalidParameter);
    EXPECT_EQ(Data(reply), Bytes(10, 0xEE));
    // As much as a message holds.
    EXPECT_EQ(Ask(*pipe, Request(0x00093000, 0xFFFFFFFF)).size(), CPipeConnection::kMostMessage);
}

TEST_F(LibServiceAPI, IgnoresMessagesOfAnotherLength) {
    const auto pipe = Connect();
    Bytes tooLong = RecordsRequest(0, 0, 100);
    tooLong.push_back(0);
    Bytes promised = RecordsRequest(0, 0, 100);
    Put(promised, kInputLength, 1, 4);
    for (const Bytes& message : {Bytes(), Bytes(1), Bytes(kSmallestRequest - 1), tooLong, promised})
        EXPECT_EQ(pipe->WriteMessage({message}, *m_never), ErrorCode::Success);
    Bytes input = RecordsRequest(0, 0, 100);
    Put(input, kInputLength, 3, 4);
    input.resize(input.size() + 3);
    EXPECT_EQ(Data(Ask(*pipe, input)).size(), kEntries);  // the first reply there is
}

TEST_F(LibServiceAPI, RefusesAdministratorsCodesToOthers) {
    const auto statusAs = [this](uid_t user) {
        std::uint32_t status = 0;
        std::size_t size = 0;
        std::thread([&] {
            // Of this thread alone.
            if (user != ::geteuid()) {
                ASSERT_EQ(::syscall(SYS_setresuid, -1, user, -1), 0);
            }
            const auto pipe = Connect();
            ASSERT_NE(pipe, nullptr);
            const Bytes reply = Ask(*pipe, Request(0x000970C4, 100));
            status = Status(reply);
            size = Data(reply).size();
        }).join();
        return std::pair(status, size);
    };
    if (::geteuid() != 0) {
        EXPECT_EQ(statusAs(::geteuid()), std::pair(kAccessDenied, std::size_t{0}));
        return;
    }
    EXPECT_EQ(statusAs(65534), std::pair(kAccessDenied, std::size_t{0}));
    EXPECT_EQ(statusAs(0), std::pair(kInvalidParameter, std::size_t{100}));
}

TEST_F(LibServiceAPI, WakesEveryoneWhoWaitsForARecord) {
    constexpr int kClients = 20;
    std::vector<std::unique_ptr<CPipeConnection>> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.push_back(Connect());
        ASSERT_EQ(clients.back()->WriteMessage({RecordsRequest(0, 0xFFFFFFFF, 1000)}, *m_never),
                  ErrorCode::Success);
    }
    Trace(1);
    for (const auto& client : clients)
        EXPECT_EQ(Data(client->ReadMessage(*m_never).Value()).size(), kEntries + kEntrySize);
}

TEST_F(LibServiceAPI, StartsAgainFromTheOldestRecordWhenTheWantedOneIsGone) {
    m_trace.SetRecordSpan(10);
    const auto client = Client();
    const auto other = Connect();
    // Waits for a record far ahead; meanwhile the oldest ones go.
    ASSERT_EQ(other->WriteMessage({RecordsRequest(1'000'000, 0xFFFFFFFF, 4096)}, *m_never),
              ErrorCode::Success);
    while (m_trace.OldestRecord() == 0) Trace(100);
    EXPECT_GT(Get(Data(other->ReadMessage(*m_never).Value()), kEntries, 8), 0U);
    const auto records = client->ReadRecords(0, milliseconds(0), *m_never);
    ASSERT_TRUE(records.IsOk());
    EXPECT_EQ(records.Value().records.front().number, m_trace.OldestRecord());
}

TEST_F(LibServiceAPI, GivesClientsEveryRecordInPortions) {
    for (int i = 0; i < 5000; ++i) m_trace.Trace(*this, kTwoArguments, {L"PUT", std::to_wstring(i)});
    const auto client = Client();
    std::uint64_t next = 0;
    int portions = 0;
    while (next < 5000) {
        const auto portion = client->ReadRecords(next, milliseconds(0), *m_never);
        ASSERT_TRUE(portion.IsOk() && !portion.Value().records.empty());
        EXPECT_EQ(portion.Value().next, 5000U);
        for (const CServiceRecord& record : portion.Value().records) {
            ASSERT_EQ(record.number, next++);
            EXPECT_EQ(DecodeArguments(record.arguments)->at(1), TraceValue(std::to_string(record.number)));
        }
        ++portions;
    }
    EXPECT_GT(portions, 1);
    const std::uint64_t key = m_trace.Read(0)->object;
    EXPECT_EQ(client->ObjectName(key, *m_never).Value(), "A name of many l");
    EXPECT_EQ(client->ObjectName(key + 1, *m_never).Error(), ErrorCode::NotFound);
    // Everything at once.
    const auto pipe = Connect();
    EXPECT_GT(Data(Ask(*pipe, RecordsRequest(0, 0, 0xFFFFFFFF))).size(), 5000 * kEntrySize);
}

TEST_F(LibServiceAPI, StopsWithClientsInEveryState) {
    Trace(20'000);
    const auto silent = Connect();
    const auto waiting = Connect();
    ASSERT_EQ(waiting->WriteMessage({RecordsRequest(1'000'000, 0xFFFFFFFF, 100)}, *m_never),
              ErrorCode::Success);
    const auto slow = Connect();  // asks for everything again and again and never reads
    for (int i = 0; i < 8; ++i) {
        ASSERT_EQ(slow->WriteMessage({RecordsRequest(0, 0, 0xFFFFFFFF)}, *m_never), ErrorCode::Success);
    }
    const auto leaving = Connect();
    ASSERT_EQ(leaving->WriteMessage({RecordsRequest(0, 0, 0xFFFFFFFF)}, *m_never), ErrorCode::Success);
    const auto client = Client();
    EXPECT_EQ(client->ReadRecords(0, milliseconds(0), *m_never).Value().next, 20'000U);
    Stop();
    EXPECT_EQ(client->ReadRecords(0, milliseconds(0), *m_never).Error(), ErrorCode::BrokenPipe);
    EXPECT_FALSE(std::filesystem::exists(m_root / "pipe/Quorbel.Test"));
    EXPECT_TRUE(m_events.Take().empty());
    Start();
}

TEST_F(LibServiceAPI, ClosesAConnectionWhoseMessageIsTooLong) {
    const auto pipe = Connect();
    // By hand, as the connection itself would not send it.
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = m_root / "pipe/Quorbel.Test";
    std::copy(path.begin(), path.end(), address.sun_path);
    ASSERT_EQ(::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const Bytes length = {1, 0, 0, 1};  // 16 MiB and a byte
    ASSERT_EQ(::send(socket, length.data(), length.size(), 0), 4);
    char byte = 0;
    EXPECT_EQ(::recv(socket, &byte, 1, 0), 0);
    ::close(socket);
    EXPECT_EQ(Data(Ask(*pipe, RecordsRequest(0, 0, 100))).size(), kEntries);
}

TEST_F(LibServiceAPI, ServesAThousandConnectionsAndClosesThoseBeyondTheLimit) {
    std::vector<std::unique_ptr<CPipeConnection>> clients;
    for (int i = 0; i < 1000; ++i) {
        clients.push_back(Connect());
        ASSERT_NE(clients.back(), nullptr);
        ASSERT_EQ(Data(Ask(*clients.back(), RecordsRequest(0, 0, 100))).size(), kEntries);
    }
    // The limit is one more for each that is administrator's; one beyond it is closed.
    bool wasClosed = false;
    while (!wasClosed && clients.size() <= CServiceAPIListener::kMostConnections) {
        auto client = Connect();
        Ignore(client->WriteMessage({RecordsRequest(0, 0, 100)}, *m_never));
        wasClosed = !client->ReadMessage(*m_never).IsOk();
        clients.push_back(std::move(client));
    }
    EXPECT_TRUE(wasClosed);
    clients.clear();
    while (true) {
        const auto client = Connect();
        Ignore(client->WriteMessage({RecordsRequest(0, 0, 100)}, *m_never));
        if (client->ReadMessage(*m_never).IsOk()) break;
    }
}

TEST_F(LibServiceAPI, LetsOneServiceOfANameServe) {
    EXPECT_EQ(CNamedPipe::Create(m_root / "pipe", "Quorbel.Test").Error(), ErrorCode::Busy);
    Stop();
    EXPECT_EQ(CServiceApiClient::Connect(m_root.Path(), L"Test").Error(), ErrorCode::FileNotFound);
    {
        // A pipe whose server was killed: the name stays, nobody answers.
        const auto pipe = CNamedPipe::Create(m_root / "pipe", "Quorbel.Test").Value();
        std::filesystem::rename(m_root / "pipe/Quorbel.Test", m_root / "kept");
    }
    std::filesystem::rename(m_root / "kept", m_root / "pipe/Quorbel.Test");
    EXPECT_EQ(CServiceApiClient::Connect(m_root.Path(), L"Test").Error(), ErrorCode::ConnectionRefused);
    Start();
    EXPECT_NE(Connect(), nullptr);
}

}  // namespace
}  // namespace quorbel
