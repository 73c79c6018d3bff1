#include <algorithm>

#include "LibService/api/ServiceApiClient.h"
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
constexpr std::uint64_t kLargestFile = 16 << 20;

CResult<std::vector<std::uint8_t>> ReadWhole(const std::wstring& path) {
    const auto file = CFile::Open(path);
    if (!file.IsOk()) return file.Error();
    if (file.Value().Stamp().size > kLargestFile) return ErrorCode::FileTooLarge;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(file.Value().Stamp().size));
    for (std::size_t filled = 0; filled < bytes.size();) {
        const auto count = file.Value().Read(filled, std::span(bytes).subspan(filled));
        if (!count.IsOk()) return count.Error();
        if (count.Value() == 0) bytes.resize(filled);
        filled += count.Value();
    }
    return bytes;
}

/// Adds a file's records that pass the filter; says on standard error where a damaged one ends.
ExitCode AddRecords(const std::wstring& path, const CTraceFilter& filter,
                    std::vector<CShownRecord>& records) {
    const auto bytes = ReadWhole(path);
    if (!bytes.IsOk()) return Fail(path + L" cannot be read", bytes.Error());
    CTraceFileContent content = ReadTraceFile(bytes.Value());
    for (CTraceFileRecord& record : content.records) {
        CShownRecord shown{record.number, record.time, record.id, std::move(record.object),
                           std::move(record.arguments)};
        if (filter.Passes(shown)) records.push_back(std::move(shown));
    }
    if (!content.damage) return ExitCode::Success;
    return Fail(path + L" is damaged: " + FromUtf8(content.damage->what) + L" at byte " +
                std::to_wstring(content.damage->offset) + L" cannot be read; " +
                std::to_wstring(content.records.size()) + L" records could be.");
}

/// The live records of a service.
class CFollower {
 public:
    CFollower(CServiceApiClient& client, const CTraceFilter& filter, const CTraceView& view, CEvent& stop)
        : m_client(client), m_filter(filter), m_view(view), m_stop(stop) {}

    /// Shows the last `lines` records and then what comes, until the service ends or `stop` is set.
    ErrorCode Follow(std::uint64_t lines) {
        const auto now = m_client.ReadRecords(~std::uint64_t{0}, kNoWait, m_stop);
        if (!now.IsOk()) return now.Error();
        std::uint64_t first = now.Value().next - std::min(now.Value().next, lines);
        for (;;) {
            const auto records = m_client.ReadRecords(first, kWait, m_stop);
            if (!records.IsOk()) return records.Error();
            for (const CServiceRecord& record : records.Value().records) {
                const ErrorCode error = Show(record);
                if (error != ErrorCode::Success) return error;
                first = record.number + 1;
            }
            if (std::fflush(stdout) != 0) return ErrorCode::WriteFault;
        }
    }

 private:
    static constexpr std::chrono::milliseconds kNoWait{0};
    static constexpr std::chrono::milliseconds kWait{60'000};

    ErrorCode Show(const CServiceRecord& record) {
        auto name = m_names.find(record.object);
        if (name == m_names.end()) {
            const auto asked = m_client.ObjectName(record.object, m_stop);
            if (!asked.IsOk() && asked.Error() != ErrorCode::NotFound) return asked.Error();
            name = m_names.emplace(record.object, asked.IsOk() ? asked.Value() : "?").first;
        }
        const CShownRecord shown{record.number, record.time, record.id, name->second, record.arguments};
        if (m_filter.Passes(shown)) m_view.Show(shown);
        return ErrorCode::Success;
    }

    CServiceApiClient& m_client;
    const CTraceFilter& m_filter;
    const CTraceView& m_view;
    CEvent& m_stop;
    std::map<std::uint64_t, std::string> m_names;
};

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
    std::vector<CShownRecord> records;
    ExitCode code = ExitCode::Success;
    for (const std::wstring& path : arguments.Operands()) {
        if (AddRecords(path, std::get<CTraceFilter>(filter), records) != ExitCode::Success)
            code = ExitCode::Failure;
    }
    std::stable_sort(records.begin(), records.end(), [](const CShownRecord& left, const CShownRecord& right) {
        return left.time < right.time;
    });
    for (const CShownRecord& record : records) view.Value().Show(record);
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
    CFollower follower(*client.Value(), std::get<CTraceFilter>(filter), view.Value(), *stop.Value());
    const ErrorCode ended = follower.Follow(*lines);
    if (ended == ErrorCode::Cancelled) return ExitCode::Success;
    if (ended == ErrorCode::BrokenPipe) return Fail(L"The service has ended.");
    return Fail(L"The service's records cannot be read", ended);
}

}  // namespace quorbel
