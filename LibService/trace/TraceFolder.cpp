#include "LibService/trace/TraceFolder.h"

#include <algorithm>
#include <ctime>

#include "platform/Clock.h"
#include "platform/File.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

constexpr std::string_view kExtension = ".QBT";
constexpr std::size_t kTimeDigits = 14;
constexpr std::size_t kFewestNumberDigits = 4;

std::string LocalTime(std::int64_t unixTime) {
    const auto seconds = static_cast<std::time_t>(unixTime);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y%m%d%H%M%S", &local)};
}

bool IsTraceFile(std::string_view name, std::string_view serviceName) {
    if (!name.starts_with(serviceName) || !name.ends_with(kExtension)) return false;
    const std::size_t rest = name.size() - serviceName.size() - kExtension.size();
    const std::string_view digits = name.substr(serviceName.size(), rest);
    return rest >= kTimeDigits + kFewestNumberDigits &&
           digits.find_first_not_of("0123456789ABCDEF") == digits.npos;
}

}  // namespace

CTraceFolder::CTraceFolder(std::filesystem::path path, std::string serviceName, std::uint64_t startTime)
    : m_path(std::move(path)), m_serviceName(std::move(serviceName)) {
    std::int64_t seconds = ToUnixTime(startTime).seconds;
    do m_startTime = LocalTime(seconds++);
    while (StampOf(FileOf(1)).IsOk());
}

std::wstring CTraceFolder::FileOf(std::uint32_t number) const {
    std::array<char, 16> digits{};
    std::snprintf(digits.data(), digits.size(), "%.4X", number);
    return FromUtf8((m_path / (m_serviceName + m_startTime + digits.data())).native()) + FromUtf8(kExtension);
}

ErrorCode CTraceFolder::Write(std::uint32_t number, const CTraceFileImage& image) try {
    const std::vector<std::uint8_t> bytes = WriteTraceFile(image);
    const std::string_view content(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const std::wstring file = FileOf(number);
    ErrorCode error = ReplaceFile(file, content, FileReaders::Owner);
    if (error == ErrorCode::FileNotFound) {
        error = CreateFolder(FromUtf8(m_path.native()));
        if (error == ErrorCode::Success) error = ReplaceFile(file, content, FileReaders::Owner);
    }
    if (error == ErrorCode::Success && number > m_highestWritten) {
        m_highestWritten = number;
        RemoveOldest();
    }
    return error;
} catch (const std::bad_alloc&) {
    return ErrorCode::NotEnoughMemory;
}

/// The names tell the order.
void CTraceFolder::RemoveOldest() const {
    std::vector<std::filesystem::path> files;
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(m_path, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        if (IsTraceFile(entry->path().filename().native(), m_serviceName)) files.push_back(entry->path());
    }
    if (files.size() <= kMostFiles) return;
    std::sort(files.begin(), files.end());
    files.resize(files.size() - kMostFiles);
    for (const auto& file : files) std::filesystem::remove(file, failure);
}

}  // namespace quorbel
