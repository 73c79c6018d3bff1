#include <ctime>

#include "platform/Clock.h"
#include "platform/Root.h"
#include "platform/Text.h"
#include "platform/eventlog/EventSink.h"
#include "tools/qbctl/Commands.h"

namespace quorbel {

namespace {

std::wstring FormatTime(std::uint64_t time) {
    const auto seconds = static_cast<std::time_t>(ToUnixTime(time).seconds);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    return FromUtf8(std::string_view(text.data(), length));
}

std::wstring_view Name(EventSeverity severity) {
    switch (severity) {
        case EventSeverity::Success: return L"Success";
        case EventSeverity::Informational: return L"Information";
        case EventSeverity::Warning: return L"Warning";
        case EventSeverity::Error: return L"Error";
    }
    return L"Error";
}

void ShowText(const CEventEntry& entry) {
    std::wstring line = FormatTime(entry.time) + L"  0x" + ToHex(entry.id, 8) + L"  ";
    line += Name(entry.severity);
    if (!entry.source.empty()) {
        line += L"  " + FromUtf8(entry.source) + L':' + std::to_wstring(entry.line);
    }
    PrintLine(line);
    PrintLine(L"    " + entry.text);
}

}  // namespace

ExitCode Events(const CArguments& arguments) {
    const CResult<std::filesystem::path> root = OpenRootFolder();
    if (!root.IsOk()) return Fail(L"The root folder cannot be opened", root.Error());
    for (const CEventEntry& entry : ReadEventFiles(root.Value())) {
        if (arguments.Has(L"--json")) {
            PrintData(ToJsonLine(entry));
        } else {
            ShowText(entry);
        }
    }
    return ExitCode::Success;
}

}  // namespace quorbel
