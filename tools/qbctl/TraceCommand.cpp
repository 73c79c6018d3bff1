#include <algorithm>

#include "LibService/api/RecordFollower.h"
#include "LibService/trace/TraceFileReader.h"
#include "platform/File.h"
#include "platform/Root.h"
#include "platform/StopSignals.h"
#include "platform/Text.h"
#include "tools/qbctl/Commands.h"
#include "tools/qbctl/TraceFilter.h"
#include "tools/qbctl/TraceView.h"

namespace quorbel {

namespace {

constexpr std::wstring_view kServiceName = L"QBHTTPService";
/// Records before the first new one that "trace follow" begins with.
constexpr std::uint64_t kUsualLines = 10;
/// A trace file has at most eight buffers; what is larger by far is something else.
constexpr std::uint64_t kLargestFile = 1 << 20;

CResult<std::vector<std::uint8_t>> ReadWhole(const std::wstring& path) {
    auto file = CFile::Open(path);
    if (!file.IsOk()) return file.Error();
    if (file.Value().Stamp().size > kLargestFile) return ErrorCode::FileTooLarge;
    if (const ErrorCode error = file.Value().LoadContent(); error != ErrorCode::Success) return error;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(file.Value().Stamp().size));
    const auto count = file.Value().Read(0, bytes);
    if (!count.IsOk()) return count.Error();
    return bytes;
}

/// Adds a file's records that pass the filter; says on standard error where a damaged one ends.
ExitCode AddRecords(const std::wstring& path, const CTraceFilter& filter,
                    std::vector<CTraceFileRecord>& records) {
    const auto bytes = ReadWhole(path);
    if (!bytes.IsOk()) return Fail(path + L" cannot be read", bytes.Error());
    CTraceFileContent content = ReadTraceFile(bytes.Value());
    for (CTraceFileRecord& record : content.records) {
        if (filter.Passes(record)) records.push_back(std::move(record));
    }
    if (!content.damage) return ExitCode::Success;
    return Fail(path + L" is damaged: " + FromUtf8(content.damage->what) + L" at byte " +
                std::to_wstring(content.damage->offset) + L" cannot be read; " +
                std::to_wstring(content.records.size()) + L" records could be.");
}

std::optional<std::uint64_t> LinesOf(const CArguments& arguments) {
    const std::wstring* const text = arguments.Value(L"--lines");
    if (text == nullptr) return kUsualLines;
    std::wstring_view rest = *text;
    const auto lines = TakeDecimal(rest);
    return rest.empty() ? lines : std::nullopt;
}

ExitCode FailWithoutMessages(ErrorCode error) {
    return Fail(L"The trace message module cannot be read", error);
}

}  // namespace

ExitCode TraceShow(const CArguments& arguments) {
    const auto filter = CTraceFilter::FromArguments(arguments);
    if (const auto* reason = std::get_if<std::wstring>(&filter))
        return FailUsage(*reason, L"qbctl trace show");
    const auto view = CTraceView::FromArguments(arguments);
    if (!view.IsOk()) return FailWithoutMessages(view.Error());
    std::vector<CTraceFileRecord> records;
    ExitCode code = ExitCode::Success;
    for (const std::wstring& path : arguments.Operands()) {
        if (AddRecords(path, std::get<CTraceFilter>(filter), records) != ExitCode::Success)
            code = ExitCode::Failure;
    }
    std::stable_sort(
        records.begin(), records.end(),
        [](const CTraceFileRecord& left, const CTraceFileRecord& right) { return left.time < right.time; });
    for (const CTraceFileRecord& record : records) view.Value().Show(record);
    return code;
}

ExitCode TraceFollow(const CArguments& arguments) {
    const auto filter = CTraceFilter::FromArguments(arguments);
    if (const auto* reason = std::get_if<std::wstring>(&filter))
        return FailUsage(*reason, L"qbctl trace follow");
    const auto lines = LinesOf(arguments);
    if (!lines) return FailUsage(L"No number: " + *arguments.Value(L"--lines"), L"qbctl trace follow");
    const auto view = CTraceView::FromArguments(arguments);
    if (!view.IsOk()) return FailWithoutMessages(view.Error());
    const auto root = OpenRootFolder();
    if (!root.IsOk()) return Fail(L"The root folder cannot be opened", root.Error());
    const auto client = CServiceApiClient::Connect(root.Value(), kServiceName);
    if (!client.IsOk()) {
        const bool isMissing =
            client.Error() == ErrorCode::FileNotFound || client.Error() == ErrorCode::ConnectionRefused;
        return isMissing ? Fail(L"The service does not run.")
                         : Fail(L"The service cannot be reached", client.Error());
    }
    const auto stop = CEvent::Create(EventReset::Manual);
    if (!stop.IsOk()) return Fail(L"No event can be made", stop.Error());
    if (const ErrorCode error = SetOnStopSignals(stop.Value()); error != ErrorCode::Success)
        return Fail(L"The signals cannot be set up", error);
    const auto show = [&](const std::vector<CNamedRecord>& records) {
        for (const auto& [record, object] : records) {
            const CTraceFileRecord shown{record.number, record.time, record.id, object, record.arguments};
            if (std::get<CTraceFilter>(filter).Passes(shown)) view.Value().Show(shown);
        }
        return std::fflush(stdout) == 0 ? ErrorCode::Success : ErrorCode::WriteFault;
    };
    const ErrorCode ended = CRecordFollower(*client.Value(), *stop.Value()).Follow(*lines, show);
    if (ended == ErrorCode::Cancelled) return ExitCode::Success;
    if (ended == ErrorCode::BrokenPipe) return Fail(L"The service has ended.");
    return Fail(L"The service's records cannot be read", ended);
}

}  // namespace quorbel
