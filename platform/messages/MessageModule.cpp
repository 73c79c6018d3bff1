#include "platform/messages/MessageModule.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

#include "platform/FileDescriptor.h"
#include "platform/Text.h"
#include "platform/messages/Catalogue.h"

namespace quorbel {

namespace {

constexpr std::size_t kLargestFile = 1 << 20;

CResult<std::string> ReadWhole(const std::filesystem::path& file) {
    CFileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!descriptor.IsOpen()) return ErrorFromErrno(errno);
    struct stat status {};
    if (::fstat(descriptor.Get(), &status) != 0) return ErrorFromErrno(errno);
    if (!S_ISREG(status.st_mode)) return ErrorCode::BadFileType;
    std::string content(kLargestFile + 1, '\0');
    std::size_t length = 0;
    while (length < content.size()) {
        const ssize_t count = ::read(descriptor.Get(), content.data() + length, content.size() - length);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return ErrorFromErrno(errno);
        if (count == 0) break;
        length += static_cast<std::size_t>(count);
    }
    if (length > kLargestFile) return ErrorCode::FileTooLarge;
    content.resize(length);
    return content;
}

/// What a percent sign stands for.
struct CEscape {
    std::size_t insert = 0;    ///< number of the insertion string; 0 when it is none
    wchar_t character = L'%';  ///< the character otherwise
    bool ends = false;         ///< the text ends here, line end included
};

bool IsDigit(std::wstring_view text) {
    return !text.empty() && text.front() >= L'0' && text.front() <= L'9';
}

/// Removes an insert's "!format!" when it is complete.
void SkipFormat(std::wstring_view& rest) {
    if (rest.empty() || rest.front() != L'!') return;
    const std::size_t end = rest.find(L'!', 1);
    if (end != std::wstring_view::npos) rest.remove_prefix(end + 1);
}

/// Reads what follows a percent sign and moves `rest` past it.
CEscape TakeEscape(std::wstring_view& rest) {
    if (rest.empty()) return {};
    const wchar_t first = rest.front();
    rest.remove_prefix(1);
    if (first == L'0') return {0, L'%', true};
    if (first < L'1' || first > L'9') return {0, first, false};
    auto number = static_cast<std::size_t>(first - L'0');
    if (IsDigit(rest)) {
        number = number * 10 + static_cast<std::size_t>(rest.front() - L'0');
        rest.remove_prefix(1);
    }
    SkipFormat(rest);
    return {number, L'%', false};
}

void AppendCharacter(std::wstring& text, wchar_t escape) {
    if (escape == L'n') {
        text += L"\r\n";
    } else if (escape == L'r') {
        text += L'\r';
    } else if (escape == L't') {
        text += L'\t';
    } else if (escape == L'b') {
        text += L' ';
    } else {
        text += escape;
    }
}

}  // namespace

CResult<std::shared_ptr<const CMessageModule>> CMessageModule::Load(const std::filesystem::path& file) {
    CResult<std::string> content = ReadWhole(file);
    if (!content.IsOk()) return content.Error();
    return Parse(content.Value());
}

CResult<std::shared_ptr<const CMessageModule>> CMessageModule::Parse(std::string_view catalogue) {
    auto texts = ParseCatalogue(catalogue);
    if (!texts) return ErrorCode::BadFileType;
    auto module = std::make_shared<CMessageModule>();
    module->m_texts = std::move(*texts);
    return std::shared_ptr<const CMessageModule>(std::move(module));
}

std::optional<std::wstring> CMessageModule::Find(std::uint32_t id) const {
    const auto found = m_texts.find(id);
    if (found == m_texts.end()) return std::nullopt;
    return found->second;
}

std::optional<std::wstring> CMessageModule::Format(std::uint32_t id,
                                                   std::span<const std::wstring> inserts) const {
    const auto found = m_texts.find(id);
    if (found == m_texts.end()) return std::nullopt;
    std::wstring text;
    for (std::wstring_view rest = found->second; !rest.empty();) {
        const wchar_t character = rest.front();
        rest.remove_prefix(1);
        if (character != L'%') {
            text += character;
            continue;
        }
        const CEscape escape = TakeEscape(rest);
        if (escape.ends) break;
        if (escape.insert == 0) AppendCharacter(text, escape.character);
        if (escape.insert != 0 && escape.insert <= inserts.size()) text += inserts[escape.insert - 1];
    }
    return text;
}

std::size_t CMessageModule::InsertCount(std::uint32_t id) const {
    const auto found = m_texts.find(id);
    if (found == m_texts.end()) return 0;
    std::size_t highest = 0;
    std::wstring_view rest = found->second;
    for (std::size_t at = rest.find(L'%'); at != std::wstring_view::npos; at = rest.find(L'%')) {
        rest.remove_prefix(at + 1);
        const CEscape escape = TakeEscape(rest);
        if (escape.ends) break;
        highest = std::max(highest, escape.insert);
    }
    return highest;
}

std::vector<std::uint32_t> CMessageModule::Identifiers() const {
    std::vector<std::uint32_t> identifiers;
    for (const auto& [id, text] : m_texts) identifiers.push_back(id);
    std::sort(identifiers.begin(), identifiers.end());
    return identifiers;
}

}  // namespace quorbel
