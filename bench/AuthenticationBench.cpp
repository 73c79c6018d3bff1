#include <benchmark/benchmark.h>

#include "LibService/WorkItems.h"
#include "auth/Authentication.h"
#include "auth/passkeys/Assertion.h"
#include "auth/users/Argon2.h"
#include "bench/ScratchFolder.h"
#include "platform/crypto/Digest.h"
#include "platform/folders/FolderSearch.h"
#include "platform/registry/SqliteRegistry.h"
#include "tests/support/service/SoftAuthenticator.h"

namespace quorbel {

namespace {

using CAuthenticator = CHTTPServer::CAuthenticator;

/// Hashes that cost nothing, so that what is measured is the rest.
class CNoHasher final : public IPasswordHasher {
 public:
    CResult<PasswordHash> Hash(std::string_view, const PasswordSalt&) override { return PasswordHash{}; }
};

/// An authenticator over a registry with so many users of hashed passwords and the passwords' hashes all
/// zero.
class CUsersOf {
 public:
    explicit CUsersOf(std::int64_t users) {
        registry = OpenSqliteRegistry(folder.Path()).Value();
        const auto transaction = registry->Begin().Value();
        host = registry->LocalMachine()->Create(L"host").Value();
        CPassword password(L"p");
        Ignore(password.SetPassword(hasher));
        for (std::int64_t i = 0; i != users; ++i) {
            const auto user = host->Create(L"Users\\" + Name(i)).Value();
            Ignore(password.Write(*user));
            Ignore(user->Set(L"Identity", {ValueType::Binary, Sha256({ToUtf8(Name(i))}).substr(0, 16)}));
            Ignore(user->Set(L"DisplayName", CValue::FromText(Name(i))));
        }
        Ignore(transaction->Commit());
        std::filesystem::create_directory(folder.Path() / "keys");
        keys = OpenKeyStorageProvider(folder.Path() / "keys");
        threads = CThreadSet::Create(SystemClock()).Value();
        work = CWorkItems::Create(*threads).Value();
        authenticator = std::make_shared<CAuthenticator>(
            CAuthenticator::Platform{*registry, hasher, *keys, *work, SystemClock()}, L"example.org", 3600);
        CServer server;
        if (!authenticator
                 ->Initialize(server.server, L"/auth", CRegistryKey(host->Duplicate().Value()), L"QbAuth")
                 .IsOk()) {
            std::abort();
        }
    }
    ~CUsersOf() {
        authenticator.reset();
        work->Stop();
        work->Wait();
    }
    static std::wstring Name(std::int64_t number) { return L"user" + std::to_wstring(number); }

    CScratchFolder folder;
    CNoHasher hasher;
    std::shared_ptr<IRegistry> registry;
    std::unique_ptr<IKey> host;
    std::unique_ptr<IKeyStorageProvider> keys;
    std::unique_ptr<CThreadSet> threads;
    std::unique_ptr<CWorkItems> work;
    std::shared_ptr<CAuthenticator> authenticator;

 private:
    class CNoTrace final : public CTraceLogger {
     public:
        void Trace(const CTraceLoggable&, std::uint32_t, std::initializer_list<TraceArgument>) override {}
        void TraceNoSave(const CTraceLoggable&, std::uint32_t,
                         std::initializer_list<TraceArgument>) override {}
    };
    struct CServer {
        std::shared_ptr<IFolderSearch> folders = CreateFolderSearch().Value();
        CNoTrace trace;
        CHTTPServer server{{*folders, trace, SystemClock()}};
    };
};

/// Who sends this cookie: with so many sessions, and each thread asking for those of its own.
void Identify(benchmark::State& state) {
    static std::unique_ptr<CUsersOf> users;
    static std::vector<web::http::http_request> requests;
    if (state.thread_index() == 0) {
        users = std::make_unique<CUsersOf>(100);
        requests.clear();
        for (std::int64_t i = 0; i != state.range(0); ++i) {
            const auto token =
                users->authenticator
                    ->SignIn(UserIdentity(CUsersOf::Name(i % 100)), L"p", CAuthenticator::Remember::No)
                    .token;
            if (requests.size() < 4096) {
                requests.emplace_back(web::http::methods::GET);
                requests.back().headers()["Cookie"] = "theme=dark; QbAuth=" + token;
            }
        }
    }
    std::size_t next = static_cast<std::size_t>(state.thread_index()) * 509;
    for (auto _ : state) {
        const auto caller = users->authenticator->Identify(requests[next++ % requests.size()]);
        if (caller.level != AccessLevel::User) state.SkipWithError("nobody");
    }
    if (state.thread_index() == 0) users.reset();
}
BENCHMARK(Identify)->Arg(1)->Arg(1'000)->Arg(100'000)->Threads(1)->Threads(8)->UseRealTime();

void VerifyPasskey(benchmark::State& state, CSoftKey::Kind kind) {
    const CSoftAuthenticator passkey(kind);
    const CAssertionResponse response = passkey.Assertion("challenge");
    const std::string key = passkey.PublicKey();
    for (auto _ : state) {
        const CStatus status =
            VerifyAssertion(response, L"ann", key, "challenge", passkey.RelyingPartyHash());
        if (!status.IsOk()) state.SkipWithError("refused");
    }
}
BENCHMARK_CAPTURE(VerifyPasskey, ES256, CSoftKey::Kind::P256)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(VerifyPasskey, RS256, CSoftKey::Kind::Rsa2048)->Unit(benchmark::kMicrosecond);

void LoadUsers(benchmark::State& state) {
    const CUsersOf users(state.range(0));
    for (auto _ : state) {
        if (!users.authenticator->LoadUsers().IsOk()) state.SkipWithError("not loaded");
    }
}
BENCHMARK(LoadUsers)->Arg(100)->Arg(10'000)->Unit(benchmark::kMillisecond);

void HashPassword(benchmark::State& state) {
    CArgon2 argon2;
    for (auto _ : state) {
        if (!argon2.Hash("password", PasswordSalt{}).IsOk()) state.SkipWithError("no hash");
    }
}
BENCHMARK(HashPassword)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

}  // namespace quorbel
