#include "config/HostConfiguration.h"

#include <algorithm>

#include "LibService/MessageIds.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

struct CLevelName {
    AccessLevel level;
    std::wstring_view application;  ///< before the "/" of a web application's value name
    std::wstring_view root;         ///< name of the access root's value
};
constexpr CLevelName kLevelNames[] = {{AccessLevel::Admin, L"Admin", L"Admin Root"},
                                      {AccessLevel::User, L"User", L"User Root"},
                                      {AccessLevel::Anon, L"Anon", L"Anon Root"}};

/// The folder of a file's path: "\" as separator, without the last one. None when the path has no separator.
std::optional<std::wstring> FolderOf(std::wstring path) {
    std::replace(path.begin(), path.end(), L'/', L'\\');
    const std::size_t end = path.rfind(L'\\');
    if (end == std::wstring::npos) return std::nullopt;
    path.resize(end);
    return path;
}

/// Takes in the values of one layer after the other; what is read later overrides.
class CLayerReader {
 public:
    explicit CLayerReader(HostConfiguration& configuration) : m_configuration(configuration) {}

    CStatus ReadLayer(const CRegistryKey& layer) {
        const auto copy = layer.DuplicateKey();
        if (!copy.IsOk()) return SystemError(copy.Error());
        RETURN_IF_FAILED(copy.Value().EnumerateValues(
            [this](const std::wstring& name, const std::wstring& text) { return OnText(name, text); },
            [this](const std::wstring& name, std::uint32_t number) { return OnNumber32(name, number); },
            [this](const std::wstring& name, std::uint64_t number) {
                return AddNamedValue(name, std::to_wstring(number));
            }));
        return ReadLocations(copy.Value());
    }

 private:
    CStatus OnText(const std::wstring& name, const std::wstring& text) {
        for (const CLevelName& entry : kLevelNames) {
            if (!EqualNoCase(name, entry.root)) continue;
            m_configuration.accessRoots[entry.level] = text;
            return {};
        }
        if (const std::size_t slash = name.find(L'/'); slash == 0) {
            m_configuration.directoryMappings[name] = text;
        } else if (slash != std::wstring::npos) {
            AddWebApplication(std::wstring_view(name).substr(0, slash), name.substr(slash), text);
        } else if (text.empty()) {
            return {};
        } else if (EqualNoCase(name, L"Protocol")) {
            m_configuration.protocol = text;
        } else if (EqualNoCase(name, L"Port")) {
            m_configuration.port = text;
        } else {
            return AddNamedValue(name, text);
        }
        return {};
    }

    CStatus OnNumber32(const std::wstring& name, std::uint32_t number) {
        if (EqualNoCase(name, L"Port")) {
            m_configuration.port = std::to_wstring(number);
        } else if (EqualNoCase(name, L"Default Range")) {
            m_configuration.rangeCap = number;
        } else {
            return AddNamedValue(name, std::to_wstring(number));
        }
        return {};
    }

    void AddWebApplication(std::wstring_view levelName, std::wstring prefix, const std::wstring& file) {
        for (const CLevelName& entry : kLevelNames) {
            if (!EqualNoCase(levelName, entry.application)) continue;
            TextMap& applications = m_configuration.webApplications[entry.level];
            if (auto folder = FolderOf(file)) {
                applications[std::move(prefix)] = std::move(*folder);
            } else {
                applications.erase(prefix);  // no file: the layers below are overridden all the same
            }
            return;
        }
    }

    CStatus AddNamedValue(const std::wstring& name, const std::wstring& text) {
        m_configuration.namedValues[std::wstring(kRegistryName) + name] = text;
        return {};
    }

    CStatus ReadLocations(const CRegistryKey& layer) {
        const auto locations = layer.OpenKey(L"Locations", KeyAccess::Read);
        if (!locations.IsOk()) return {};
        return locations.Value().EnumerateKeys(
            [this](const std::wstring& path, const CRegistryKey& location) {
                return ReadLocation(path, location);
            });
    }

    CStatus ReadLocation(const std::wstring& path, const CRegistryKey& location) {
        TextMap values;
        const auto add = [&values](const std::wstring& name, std::wstring text) {
            values[name] = std::move(text);
            return CStatus();
        };
        RETURN_IF_FAILED(location.EnumerateValues(
            add,
            [&add](const std::wstring& name, std::uint32_t number) {
                return add(name, std::to_wstring(number));
            },
            [&add](const std::wstring& name, std::uint64_t number) {
                return add(name, std::to_wstring(number));
            }));
        // Whole: values of a location of the same path in a lower layer do not shine through.
        m_configuration.locations[path] = std::move(values);
        return {};
    }

    HostConfiguration& m_configuration;
};

/// The key of the application that the host names; not open when there is none.
CRegistryKey OpenApplication(const CRegistryKey& hostKey, const CRegistryKey& applications) {
    const auto name = hostKey.QueryValue(L"Application");
    if (!name.IsOk() || !applications.IsOpen()) return {};
    const CValue& value = name.Value();
    if (value.type != ValueType::Text && value.type != ValueType::ExpandableText) return {};
    const std::wstring application = value.AsText();
    if (application.empty()) return {};
    auto key = applications.OpenKey(application, KeyAccess::Read);
    return key.IsOk() ? std::move(key).Value() : CRegistryKey();
}

/// Replaces a mapping's folder by the text under which the archive opens it.
HRESULT ResolveMapping(std::wstring& folder, IArchiveFileSystem& archive) {
    if (folder.starts_with(L'/') || folder.starts_with(L'\\')) {
        folder.insert(0, L"0");
        return S_OK;
    }
    if (folder.size() < 2 || folder[1] != L':') {
        folder.insert(0, L"0/");
        return S_OK;
    }
    CComPtr<IArchiveFile> opened;
    const HRESULT result = archive.OpenFolder(folder.c_str(), opened.Receive());
    return Succeeded(result) ? opened->GetPath(&folder) : result;
}

}  // namespace

std::wstring PublishedPath(std::wstring_view mappedFolder) {
    constexpr std::size_t kVerbatimPrefix = 4;
    const bool isOnVolume = mappedFolder.starts_with(L"0/") || mappedFolder.starts_with(L"0\\");
    mappedFolder.remove_prefix(isOnVolume ? 1 : std::min(kVerbatimPrefix, mappedFolder.size()));
    return std::wstring(mappedFolder);
}

CStatus MergeHostConfiguration(const std::wstring& host, const CRegistryKey& hostKey,
                               const CRegistryKey& applications, IArchiveFileSystem& archive,
                               HostConfiguration& configuration) {
    CLayerReader reader(configuration);
    const CRegistryKey application = OpenApplication(hostKey, applications);
    if (applications.IsOpen()) RETURN_IF_FAILED(reader.ReadLayer(applications));
    if (application.IsOpen()) RETURN_IF_FAILED(reader.ReadLayer(application));
    RETURN_IF_FAILED(reader.ReadLayer(hostKey));
    for (auto& [name, folder] : configuration.directoryMappings) {
        const std::wstring written = folder;
        if (!Succeeded(ResolveMapping(folder, archive))) {
            return MessageError(message::kFolderUnavailable, {written, host});
        }
        configuration.namedValues[std::wstring(kDirectoryName) + name.substr(1)] = folder;
    }
    return {};
}

}  // namespace quorbel
