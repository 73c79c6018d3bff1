#include <csignal>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

#include "components/search/text/WorkerProtocol.h"

using namespace quorbel;

namespace {

void Say(std::string_view message) {
    if (::write(kWorkerSocket, message.data(), message.size()) < 0) ::_exit(1);
}

[[noreturn]] void Sleep() {
    while (true) ::pause();
}

CExtractedText Words(std::string text) {
    return {.text = std::move(text), .title = {}, .author = {}, .problem = {}};
}

/// Answers with these bytes.
void Answer(CWorkerRequest request, std::string_view answer, int status = 0) {
    if (::write(request.answer.Get(), answer.data(), answer.size()) < 0) ::_exit(1);
    request.answer = CFileDescriptor();
    Say(EncodeEnded(status));
}

void AnswerForever(const CWorkerRequest& request) {
    const std::string answer(1 << 16, 'x');
    while (::write(request.answer.Get(), answer.data(), answer.size()) > 0) {
    }
}

/// A child that keeps all that was open, and is as hard to end as it can make itself.
void LeaveChild() {
    if (::fork() != 0) return;
    ::signal(SIGTERM, SIG_IGN);
    ::signal(SIGHUP, SIG_IGN);
    Sleep();
}

void Misbehave(std::string_view role, CWorkerRequest request) {
    const std::string good = EncodeAnswer(Words("fine"));
    if (role == "hangs") Sleep();
    if (role == "dies") ::raise(SIGKILL);
    if (role == "floods") AnswerForever(request);
    if (role == "leaves-child") LeaveChild();
    if (role == "leaves-child") Sleep();
    if (role == "reports-signal") Answer(std::move(request), "", SIGSEGV);
    if (role == "reports-status") Answer(std::move(request), good, 3 << 8);
    if (role == "says-nonsense") Say("nonsense");
    if (role == "answers-nothing") Answer(std::move(request), "");
    if (role == "answers-short") Answer(std::move(request), good.substr(0, good.size() - 1));
    if (role == "answers-long") Answer(std::move(request), good + "x");
    if (role == "answers-huge-length") Answer(std::move(request), std::string(kAnswerHead, '\xFF'));
    if (role == "answers-invalid-utf8") Answer(std::move(request), EncodeAnswer(Words("a\xE4z")));
    if (role == "answers-nul") Answer(std::move(request), EncodeAnswer(Words(std::string("a\0z", 3))));
    if (role == "answers-once") Answer(std::move(request), good);
}

}  // namespace

/// A worker process that does what the name it is started by says.
int main(int, char** arguments) {
    const std::string_view path = arguments[0];
    const std::string_view role = path.substr(path.rfind('/') + 1);
    if (role == "ends") return 0;
    if (role == "keeps-silent") Sleep();
    if (role == "refuses") Say("Xit cannot be\nconfined \xE4");
    if (role == "refuses") return 1;
    Say("R");
    std::optional<CWorkerRequest> request = ReceiveRequest(kWorkerSocket);
    if (request) Misbehave(role, std::move(*request));
    return 0;
}
