#include "data/SearchDescription.h"

#include <algorithm>
#include <array>
#include <vector>

#include "platform/LocalPath.h"

namespace quorbel {

namespace {

constexpr std::wstring_view kFileScheme = L"file:";

/// Says whether a character cannot end, begin or change anything where a command has a number or a name.
bool IsPlain(wchar_t character) {
    return (character >= L'0' && character <= L'9') || (character >= L'A' && character <= L'Z') ||
           (character >= L'a' && character <= L'z') || character == L'.' || character == L'_' ||
           character == L'-';
}

bool HasDotSegment(std::wstring_view path) {
    for (std::size_t at = 0; at <= path.size();) {
        const std::size_t end = std::min(path.find_first_of(L"\\/", at), path.size());
        if (path.substr(at, end - at) == L"..") return true;
        at = end + 1;
    }
    return false;
}

bool IsInLiteral(std::wstring_view command) {
    return std::ranges::count(command, L'\'') % 2 != 0;
}

/// Name and value of a line; none for a comment.
std::optional<std::pair<std::wstring_view, std::wstring_view>> ParseLine(std::wstring_view line) {
    const std::size_t equals = line.find(L'=');
    if (equals == line.npos || line.find(L'#') < equals) return std::nullopt;
    return std::pair(line.substr(0, equals), line.substr(equals + 1));
}

}  // namespace

std::wstring NormalPath(std::wstring_view path) {
    std::vector<std::wstring_view> segments;
    for (std::size_t at = 0; at <= path.size();) {
        const std::size_t end = std::min(path.find_first_of(L"\\/", at), path.size());
        const std::wstring_view segment = path.substr(at, end - at);
        at = end + 1;
        if (segment.empty() || segment == L".") continue;
        if (segment != L"..") {
            segments.push_back(segment);
        } else if (!segments.empty()) {
            segments.pop_back();
        }
    }
    std::wstring normal;
    if (!path.empty() && IsSeparator(path.front())) normal += L'\\';
    for (const std::wstring_view segment : segments) {
        if (!normal.empty() && normal.back() != L'\\') normal += L'\\';
        normal += segment;
    }
    return normal.empty() ? L"." : normal;
}

std::wstring Rewrite(const CRewriteTable& table, std::wstring_view value) {
    // A folder's URL sorts before those of its files; the longest that fits is nearest.
    for (auto entry = table.upper_bound(std::wstring(value)); entry != table.begin();) {
        const auto& [url, path] = *--entry;
        const bool isIn = value.starts_with(url) &&
                          (value.size() == url.size() || url.ends_with(L'/') || value[url.size()] == L'/');
        if (isIn) return path + std::wstring(value.substr(url.size()));
    }
    return std::wstring(value);
}

/// Resolves the references of one entry's value.
class CSearchDescription::CResolver {
 public:
    CResolver(std::wstring_view name, const CReferences& references, CRewriteTable& rewrites)
        : m_isScope(EqualNoCase(name, L"SCOPE")),
          m_isCommand(EqualNoCase(name, L"COMMAND") || EqualNoCase(name, L"WHERERESTRICTIONS")),
          m_references(references),
          m_rewrites(rewrites) {}

    CResult<CEntry> Resolve(std::wstring_view value) {
        const std::size_t first = value.find(L'$');
        m_hasScheme = first != value.npos && first != 0 && value[first - 1] == L':';
        for (std::size_t dollar = first; dollar != value.npos; dollar = value.find(L'$')) {
            m_entry.text += value.substr(0, dollar);
            value.remove_prefix(dollar + 1);
            const std::size_t size = ResolveReference(value);
            if (m_isRefused) return ErrorCode::InvalidParameter;
            // What names nothing is dropped, up to the next reference.
            value.remove_prefix(size != 0 ? size : std::min(value.find(L'$'), value.size()));
        }
        m_entry.text += value;
        return std::move(m_entry);
    }

 private:
    /// The entry with the longest key that `text` begins with.
    static const TextMap::value_type* Longest(const TextMap& values, std::wstring_view text,
                                              bool isConfiguration) {
        const TextMap::value_type* longest = nullptr;
        for (const auto& entry : values) {
            const bool fits = !entry.first.empty() && text.starts_with(entry.first) &&
                              isConfiguration == IsConfigurationName(entry.first);
            if (fits && (!longest || entry.first.size() > longest->first.size())) longest = &entry;
        }
        return longest;
    }

    /// The characters of the key that `text` begins with; 0 for none.
    std::size_t ResolveReference(std::wstring_view text) {
        // What names the configuration is not the request's to say.
        const bool isConfiguration = IsConfigurationName(text);
        const auto* const parameter = isConfiguration ? nullptr : Longest(m_references.query, text, false);
        const auto* const named = Longest(m_references.named, text, isConfiguration);
        if (!parameter && !named) {
            // A search without the folder that was to restrict it would find everything.
            m_isRefused = m_isRefused || (isConfiguration && m_isScope);
            return 0;
        }
        const bool isNamed = named && (!parameter || named->first.size() > parameter->first.size());
        const auto& [key, value] = isNamed ? *named : *parameter;
        if (key.starts_with(kDirectoryName)) {
            AppendFolder(key.substr(kDirectoryName.size()), value);
        } else if (key.starts_with(kRegistryName)) {
            m_entry.text += value;
        } else {
            AppendOfRequest(value);
        }
        return key.size();
    }

    void AppendFolder(const std::wstring& mapping, const std::wstring& folder) {
        const std::wstring before = m_entry.text;
        std::wstring path = NormalPath(PublishedPath(folder));
        std::ranges::replace(path, L'\\', L'/');
        if (m_isScope && !m_hasScheme) m_entry.text += kFileScheme;
        m_entry.text += m_isCommand && IsInLiteral(m_entry.text) ? DoubleApostrophes(path) : path;
        std::ranges::replace(m_entry.text, L'\\', L'/');
        m_entry.folderEnd = m_entry.text.size();
        m_rewrites.try_emplace(m_entry.text, before + L"/" + mapping);
        // Within a command the text before is no part of the URL.
        m_rewrites.try_emplace(std::wstring(kFileScheme) + path, L"/" + mapping);
    }

    void AppendOfRequest(const std::wstring& value) {
        if (!m_entry.fixedSize) m_entry.fixedSize = m_entry.text.size();
        if (!m_isCommand) {
            m_entry.text += value;
        } else if (IsInLiteral(m_entry.text)) {
            // Neither up from a folder that stands before it, nor into another whose name goes on.
            const bool goesOn = m_entry.folderEnd != 0 && m_entry.folderEnd == m_entry.text.size() &&
                                !value.empty() && !IsSeparator(value.front());
            m_isRefused = m_isRefused || goesOn || HasDotSegment(value);
            m_entry.text += DoubleApostrophes(value);
        } else {
            m_isRefused = m_isRefused || !std::ranges::all_of(value, IsPlain);
            m_entry.text += value;
        }
    }

    const bool m_isScope;
    const bool m_isCommand;
    const CReferences& m_references;
    CRewriteTable& m_rewrites;
    bool m_hasScheme = false;
    bool m_isRefused = false;
    CEntry m_entry;
};

CResult<CSearchDescription> CSearchDescription::Parse(std::wstring_view text, const CReferences& references,
                                                      CRewriteTable& rewrites) {
    constexpr wchar_t kByteOrderMark = L'\xFEFF';
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(1);
    CSearchDescription description;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(L'\n'), text.size());
        std::wstring_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.ends_with(L'\r')) line.remove_suffix(1);
        const auto parsed = ParseLine(line);
        if (!parsed || description.Find(parsed->first)) continue;
        auto entry = CResolver(parsed->first, references, rewrites).Resolve(parsed->second);
        if (!entry.IsOk()) return entry.Error();
        description.m_entries.emplace(parsed->first, std::move(entry).Value());
    }
    return description;
}

const std::wstring* CSearchDescription::Find(std::wstring_view name) const {
    const auto found = m_entries.find(name);
    return found == m_entries.end() ? nullptr : &found->second.text;
}

CResult<std::wstring> CSearchDescription::Scope() const {
    const auto scope = m_entries.find(L"SCOPE");
    if (scope == m_entries.end() || scope->second.text.empty()) return std::wstring();
    CEntry whole = scope->second;
    if (const auto path = m_entries.find(L"PATH"); path != m_entries.end()) {
        if (!whole.fixedSize && path->second.fixedSize) {
            whole.fixedSize = whole.text.size() + *path->second.fixedSize;
            // The scope is a folder, whatever follows it.
            whole.folderEnd = path->second.fixedSize == 0 ? whole.text.size() : 0;
        }
        whole.text += path->second.text;
    }
    std::wstring normal = NormalPath(whole.text);
    if (!whole.fixedSize) return normal;
    std::wstring_view fixed = std::wstring_view(whole.text).substr(0, *whole.fixedSize);
    // A segment that the request goes on with is the request's.
    if (whole.folderEnd != fixed.size()) fixed = fixed.substr(0, fixed.find_last_of(L"\\/") + 1);
    const std::wstring folder = fixed.empty() ? L"" : NormalPath(fixed);
    const bool isWithin =
        normal.starts_with(folder) && (normal.size() == folder.size() || folder.empty() ||
                                       folder.back() == L'\\' || normal[folder.size()] == L'\\');
    if (!isWithin) return ErrorCode::AccessDenied;
    return normal;
}

}  // namespace quorbel
