#include "LibService/ActivityText.h"

#include "LibService/api/RecordFollower.h"
#include "LibService/trace/TraceText.h"
#include "platform/Terminal.h"
#include "platform/Text.h"
#include "platform/VisibleText.h"

namespace quorbel {

namespace {

/// Records before the first new one that the view begins with.
constexpr std::uint64_t kFirstLines = 100;

std::string LineOf(const CNamedRecord& record, const CTraceTexts& texts) {
    const std::wstring text = texts.Line(record.record.id, record.record.arguments);
    return ToVisibleUtf8(FromUtf8(record.object) + L": " + text) + "\n";
}

}  // namespace

CStatus ShowActivityAsText(const std::filesystem::path& root, const std::filesystem::path& module,
                           const std::wstring& serviceName, CEvent& close) {
    const auto messages = CMessageModule::Load(module);
    // Without it there are no texts, but still the records.
    const CTraceTexts texts = messages.IsOk() ? CTraceTexts(*messages.Value()) : CTraceTexts();
    const auto client = CServiceApiClient::Connect(root, serviceName);
    if (!client.IsOk()) return SystemError(client.Error(), L"the service does not run");
    const auto writer = CTerminalWriter::Open(kStandardOutput);
    if (!writer.IsOk()) return SystemError(writer.Error(), L"standard output");
    if (!messages.IsOk()) {
        const ErrorCode error = writer.Value()->Write(
            "The trace message module cannot be read, so that there are no texts.\n", close);
        if (error != ErrorCode::Success && error != ErrorCode::Cancelled) return SystemError(error);
    }
    const auto show = [&](const std::vector<CNamedRecord>& records) {
        std::string lines;
        for (const CNamedRecord& record : records) lines += LineOf(record, texts);
        return writer.Value()->Write(lines, close);
    };
    const ErrorCode ended = CRecordFollower(*client.Value(), close).Follow(kFirstLines, show);
    if (ended == ErrorCode::Cancelled) return {};
    return SystemError(ended, ended == ErrorCode::BrokenPipe ? L"the service has ended" : L"service API");
}

}  // namespace quorbel
