#include <charconv>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "components/search/text/WorkerProtocol.h"
#include "components/search/worker/Sandbox.h"
#include "components/search/worker/WorkerLoop.h"

namespace {

bool ParseNumber(const char* text, long& number) {
    const char* end = text + std::strlen(text);
    const auto [rest, error] = std::from_chars(text, end, number);
    return error == std::errc() && rest == end && number > 0;
}

/// Only the service has a use for this program.
int Usage() {
    std::fputs("QbTextExtract reads documents for QBHTTPService, which starts it.\n", stderr);
    return 2;
}

}  // namespace

/// QbTextExtract BYTES SECONDS: memory of each process, and processor time for one file.
int main(int count, char** arguments) {
    using namespace quorbel;
    long memory = 0;
    long seconds = 0;
    if (count != 3 || !ParseNumber(arguments[1], memory) || !ParseNumber(arguments[2], seconds) ||
        ::fcntl(kWorkerSocket, F_SETFD, FD_CLOEXEC) != 0) {
        return Usage();
    }
    const std::string refusal = EnterSandbox(static_cast<std::size_t>(memory));
    if (!refusal.empty()) {
        const std::string message = static_cast<char>(WorkerMessage::Refused) + refusal;
        ::send(kWorkerSocket, message.data(), message.size(), MSG_NOSIGNAL);
        return 1;
    }
    RunWorkerLoop(kWorkerSocket, std::chrono::seconds(seconds));
    return 0;
}
