#include "tools/minidump/DumpFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace quorbel {

namespace {

constexpr std::string_view kPartial = ".partial";
constexpr std::string_view kDump = ".dmp";

std::filesystem::path PartialOf(std::filesystem::path file) {
    return file += kPartial;
}

std::filesystem::path Numbered(const std::filesystem::path& file, int number) {
    return file.parent_path() /
           (file.stem().native() + "-" + std::to_string(number) + file.extension().native());
}

bool AreAll(std::string_view text, std::string_view characters) {
    return text.find_first_not_of(characters) == text.npos;
}

/// Takes so many of these characters from the end.
bool TakeEnd(std::string_view& text, std::size_t count, std::string_view characters) {
    if (text.size() < count || !AreAll(text.substr(text.size() - count), characters)) return false;
    text.remove_suffix(count);
    return true;
}

/// False when another has it locked, or nobody can lock it.
bool TryLock(const CFileDescriptor& file) {
    return file.IsOpen() && ::flock(file.Get(), LOCK_EX | LOCK_NB) == 0;
}

/// Removes what a helper that was killed left: it has no lock any more.
void RemoveUnlessBeingWritten(const std::filesystem::path& partial) {
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    const CFileDescriptor file(::open(partial.c_str(), kFlags));
    if (TryLock(file)) Ignore(::unlink(partial.c_str()));
}

/// The service of what is no complete dump; none when it is something else.
std::optional<std::string> ServiceOfPartial(std::string name) {
    if (!name.ends_with(kPartial)) return std::nullopt;
    name.resize(name.size() - kPartial.size());
    return CDumpFile::ServiceOf(name);
}

void RemoveStalePartials(const std::filesystem::path& file) {
    RemoveUnlessBeingWritten(PartialOf(file));
    const auto service = CDumpFile::ServiceOf(file.filename());
    if (!service) return;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(file.parent_path(), error)) {
        if (ServiceOfPartial(entry.path().filename()) == service) RemoveUnlessBeingWritten(entry.path());
    }
}

}  // namespace

CResult<CDumpFile> CDumpFile::Create(std::filesystem::path file) {
    constexpr mode_t kFolder = 0700;
    Ignore(::mkdir(file.parent_path().c_str(), kFolder));  // it may be there
    const std::filesystem::path partial = PartialOf(file);
    RemoveStalePartials(file);
    constexpr mode_t kOwner = 0600;
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
    CFileDescriptor descriptor(::open(partial.c_str(), kFlags, kOwner));
    if (!descriptor.IsOpen()) return ErrorFromErrno(errno);
    Ignore(TryLock(descriptor));  // where files cannot be locked nobody removes it
    return CDumpFile(std::move(file), std::move(descriptor));
}

CDumpFile::~CDumpFile() {
    if (m_descriptor.IsOpen() && !m_isComplete) Ignore(::unlink(PartialOf(m_file).c_str()));
}

ErrorCode CDumpFile::Complete() {
    constexpr int kMostNumber = 99;
    const std::filesystem::path partial = PartialOf(m_file);
    std::filesystem::path name = m_file;
    for (int number = 2;
         ::renameat2(AT_FDCWD, partial.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE) != 0; ++number) {
        if (errno != EEXIST || number > kMostNumber) return ErrorFromErrno(errno);
        name = Numbered(m_file, number);
    }
    m_isComplete = true;
    RemoveOld(name);
    return ErrorCode::Success;
}

std::optional<std::string> CDumpFile::ServiceOf(const std::string& name) {
    constexpr std::string_view kDigits = "0123456789";
    constexpr std::string_view kHexDigits = "0123456789ABCDEF";
    constexpr std::size_t kTime = 14;
    constexpr std::size_t kCode = 8;
    constexpr std::string_view kInvalidParameter = "InvalidParameter";
    std::string_view text = name;
    if (!text.ends_with(kDump)) return std::nullopt;
    text.remove_suffix(kDump.size());
    if (const std::size_t dash = text.rfind('-');
        dash != text.npos && text.size() - dash <= 3 && AreAll(text.substr(dash + 1), kDigits))
        text = text.substr(0, dash);
    if (!TakeEnd(text, kTime, kDigits)) return std::nullopt;
    if (text.ends_with(kInvalidParameter)) {
        text.remove_suffix(kInvalidParameter.size());
    } else if (!TakeEnd(text, kCode, kHexDigits)) {
        return std::nullopt;
    }
    return std::string(text);
}

void CDumpFile::RemoveOld(const std::filesystem::path& written) const {
    const auto service = ServiceOf(m_file.filename());
    if (!service) return;
    std::vector<std::pair<std::filesystem::file_time_type, std::filesystem::path>> dumps;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(m_file.parent_path(), error)) {
        // The one just written stays, also when the clock went back and the others seem to be newer.
        const std::filesystem::path name = entry.path().filename();
        if (name == written.filename() || ServiceOf(name) != service || !entry.is_regular_file(error))
            continue;
        const auto time = entry.last_write_time(error);
        if (!error) dumps.emplace_back(time, entry.path());
    }
    std::sort(dumps.begin(), dumps.end(), std::greater<>());
    // What cannot be removed stays for the next time.
    for (std::size_t index = kKept - 1; index < dumps.size(); ++index)
        std::filesystem::remove(dumps[index].second, error);
}

}  // namespace quorbel
