#include "tools/qbctl/Terminal.h"

#include <cstdio>
#include <iostream>
#include <unistd.h>

#include "platform/Text.h"
#include "platform/VisibleText.h"

namespace quorbel {

void Print(std::wstring_view text) {
    const std::string bytes = ToUtf8(text);
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
}

void PrintLine(std::wstring_view text) {
    PrintData(ToVisibleUtf8(text));
}

void PrintData(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
}

ExitCode Fail(std::wstring_view reason) {
    std::fprintf(stderr, "qbctl: %s\n", ToVisibleUtf8(reason).c_str());
    return ExitCode::Failure;
}

ExitCode Fail(std::wstring_view what, ErrorCode error) {
    const std::uint32_t number = ToNumber(error);
    const std::wstring text = SystemMessage(number).value_or(L"Error " + std::to_wstring(number) + L".");
    return Fail(std::wstring(what) + L": " + text);
}

ExitCode FailUsage(std::wstring_view reason, std::wstring_view command) {
    Ignore(Fail(reason));
    std::fprintf(stderr, "Type \"%s --help\" for help.\n", ToVisibleUtf8(command).c_str());
    return ExitCode::Usage;
}

bool Confirm(std::wstring_view question, std::wstring_view option) {
    if (::isatty(STDIN_FILENO) == 0) {
        Ignore(Fail(std::wstring(question) + L" There is no terminal to ask; add " + std::wstring(option) +
                    L" to go ahead."));
        return false;
    }
    std::fprintf(stderr, "%s (yes/no) ", ToVisibleUtf8(question).c_str());
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes";
}

}  // namespace quorbel
