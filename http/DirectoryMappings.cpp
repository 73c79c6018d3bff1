#include "http/DirectoryMappings.h"

#include <cpprest/asyncrt_utils.h>
#include <cpprest/base_uri.h>

#include "http/BuiltInHandlers.h"
#include "http/FileRequestHandler.h"
#include "http/MIMEMap.h"
#include "platform/Hash.h"
#include "platform/UrlPath.h"

namespace quorbel {

namespace {

constexpr std::size_t kLongestViewName = 63;  // characters

/// What the archive answered for one path.
struct COpenedFile {
    std::wstring path;       ///< empty when there is nothing to serve
    std::wstring tagSource;  ///< empty for no entity tag
    CacheClass cacheClass = CacheClass::Archive;
};

struct CInformationWords {
    std::uint32_t word0 = 0;
    std::uint32_t word1 = 0;
};

/// The words that tell versions of a file apart; none when the file does not answer for them.
std::optional<CInformationWords> QueryWords(const CComPtr<IArchiveFile>& file) {
    CComPtr<IArchiveFileInformation> information;
    CComPtr<IArchiveFileControl> control;
    if (!Succeeded(file.QueryInterface(information)) || !Succeeded(file.QueryInterface(control))) return {};
    CArchiveFileInformation buffer{};
    if (!Succeeded(information->QueryInformation(kArchiveFileInformation, &buffer, sizeof buffer))) return {};
    return CInformationWords{buffer.word0, buffer.word1};
}

std::string ViewRequest(const CInformationWords& words, std::wstring_view view) {
    std::string block;
    const auto append = [&block](std::uint32_t number, int bytes) {
        for (int i = 0; i < bytes; ++i) block.push_back(static_cast<char>(number >> 8 * i));
    };
    const std::string name = ToUtf16Bytes(view);
    append(words.word0, 4);
    append(words.word1, 4);
    append(static_cast<std::uint32_t>(name.size()), 2);
    return block + name;
}

/// The path of a view, without drive; none when the archive refuses it.
std::optional<std::wstring> ViewPath(const CComPtr<IArchiveFile>& file, const std::wstring& path,
                                     std::wstring_view view) {
    const bool isName = ToUtf16(view).size() <= kLongestViewName &&
                        view.find_first_of(std::wstring_view(L"/\\\0", 3)) == std::wstring_view::npos;
    const auto words = QueryWords(file);
    CComPtr<IArchiveFileControl> control;
    if (!isName || !words || !Succeeded(file.QueryInterface(control))) return std::nullopt;
    const std::string input = ViewRequest(*words, view);
    std::wstring output(path.size() + 260, L'\0');
    std::uint32_t returned = 0;
    if (!Succeeded(control->Control(kArchiveViewPath, input.data(), static_cast<std::uint32_t>(input.size()),
                                    output.data(), static_cast<std::uint32_t>(output.size()), &returned))) {
        return std::nullopt;
    }
    output.resize(std::min<std::size_t>(output.size(), returned / 2));
    return output;
}

COpenedFile OpenView(const CComPtr<IArchiveFile>& file, const std::wstring& path, std::wstring_view view) {
    const auto output = ViewPath(file, path, view);
    if (!output || output->empty()) return {};
    const std::size_t drive = path.find(L':');
    const std::size_t driveEnd = drive == std::wstring::npos ? 0 : drive + 2;
    return {path.substr(0, driveEnd) + *output, *output, CacheClass::View};
}

COpenedFile OpenWhole(const CComPtr<IArchiveFile>& file, const std::wstring& path) {
    const auto words = QueryWords(file);
    if (!words) return {path, L""};
    return {path, path + L"-" + ToHex(words->word0, 8) + L"-" + ToHex(words->word1, 8)};
}

/// Replaces what follows the last "." by `extension`; without a "." one is added.
std::optional<std::wstring> ReplaceExtension(std::wstring file, const std::wstring& extension) {
    if (extension.find_first_of(std::wstring_view(L"/\\\0", 3)) != std::wstring::npos) return std::nullopt;
    const std::size_t dot = file.rfind(L'.');
    if (dot == std::wstring::npos) {
        file += L'.';
    } else {
        file.resize(dot + 1);
    }
    return file + extension;
}

/// What follows the last "."; empty without one.
std::wstring ExtensionOf(const std::wstring& path) {
    const std::size_t dot = path.rfind(L'.');
    return dot == std::wstring::npos ? std::wstring() : path.substr(dot + 1);
}

/// True when the caller's copy is the one of that tag.
bool HasCopy(const web::http::http_request& request, const std::wstring& tag) {
    const auto condition = request.headers().find(web::http::header_names::if_none_match);
    return condition != request.headers().end() && FromUtf8(condition->second) == tag;
}

/// What the archive has at `path`; an empty path when it does not open it or refuses the view.
COpenedFile OpenArchiveFile(IArchiveFileSystem& archive, const std::wstring& path,
                            const std::map<utility::string_t, utility::string_t>& query) {
    CComPtr<IArchiveFile> file;
    if (!Succeeded(archive.OpenFile(path.c_str(), file.Receive()))) return {};
    std::wstring servedPath;
    if (!Succeeded(file->GetPath(&servedPath))) return {path, L""};
    const auto view = query.find("view");
    return view == query.end() ? OpenWhole(file, servedPath)
                               : OpenView(file, servedPath, FromUtf8(view->second));
}

}  // namespace

std::wstring EntityTag(std::wstring_view source) {
    const std::uint64_t hash = Fnv1a64(ToUtf16Bytes(source));
    std::vector<unsigned char> bytes;
    for (int i = 0; i < 8; ++i) bytes.push_back(static_cast<unsigned char>(hash >> 8 * i));
    return FromUtf8(utility::conversions::to_base64(bytes));
}

CDirectoryMappings::Handler CDirectoryMappings::Find(const web::http::http_request& request,
                                                     const std::wstring& path) const {
    auto mapping = m_mappings.upper_bound(path);
    if (mapping == m_mappings.begin()) return nullptr;
    --mapping;  // the greatest name not greater than the path; only this one is tried
    const auto& [name, folder] = *mapping;
    if (!path.starts_with(name)) return nullptr;
    std::wstring full = folder + path.substr(name.size());
    const std::wstring extension = ExtensionOf(full);
    const auto query = web::uri::split_query(request.request_uri().query());
    if (const auto other = query.find("extension"); other != query.end()) {
        auto replaced = ReplaceExtension(std::move(full), FromUtf8(other->second));
        if (!replaced) return nullptr;
        full = std::move(*replaced);
    }
    if (!StaysWithin(folder, full)) return nullptr;

    const COpenedFile opened = OpenArchiveFile(m_archive, full, query);
    if (opened.path.empty()) return nullptr;
    const std::wstring tag = opened.tagSource.empty() ? std::wstring() : EntityTag(opened.tagSource);
    if (HasCopy(request, tag)) return std::make_shared<CNotModifiedHandler>();
    return std::make_shared<CFileRequestHandler>(m_files, opened.path,
                                                 CMIMEMap::Instance().GetContentType(extension), tag,
                                                 opened.cacheClass, m_rangeCap);
}

}  // namespace quorbel
