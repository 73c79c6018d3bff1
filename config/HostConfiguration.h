#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "LibService/Status.h"
#include "components/archive/ArchiveFileSystem.h"
#include "config/AccessLevel.h"
#include "config/RegistryKey.h"

namespace quorbel {

/// A text by its name; names compare ordinally.
using TextMap = std::map<std::wstring, std::wstring>;

/// How the names of a host's named values begin: those of folders, and of all other values.
inline constexpr std::wstring_view kDirectoryName = L"Directory$";
inline constexpr std::wstring_view kRegistryName = L"Registry$";
constexpr bool IsConfigurationName(std::wstring_view name) noexcept {
    return name.starts_with(kDirectoryName) || name.starts_with(kRegistryName);
}

/// One host's configuration, merged from its layers: the applications key, the application that the host
/// names, and the host's own key, the later overriding the earlier. docs/configuration.md lists the values.
struct HostConfiguration {
    std::wstring protocol = L"https";  ///< URL scheme, as written
    std::wstring port = L"443";        ///< decimal
    /// Bytes that an open-ended range of a directory mapping's file receives at most.
    std::uint64_t rangeCap = 0x100000;
    std::map<AccessLevel, std::wstring>
        accessRoots;            ///< folder by level; the host opens only if there is one
    TextMap directoryMappings;  ///< folder, as the archive opens it, by name with its "/"
    /// Folder, with "\" as separator, by level and then by prefix ("/" and the application's name).
    std::map<AccessLevel, TextMap> webApplications;
    TextMap namedValues;  ///< what handlers are given: kDirectoryName + name and kRegistryName + name
    std::map<std::wstring, TextMap> locations;  ///< a location's values by its path
};

/// The path by which the file system knows the folder of a directory mapping: without the first four
/// characters
/// (\\?\) of a translated drive path, without the "0" of any other.
std::wstring PublishedPath(std::wstring_view mappedFolder);

/// Merges the configuration of one host. `applications` is not open when the tree has none; a host's
/// application that cannot be opened is left out. Errors: system errors of the store, and message 0xC00000C9
/// (value, host) for a directory mapping on a drive path that the archive cannot open.
CStatus MergeHostConfiguration(const std::wstring& host, const CRegistryKey& hostKey,
                               const CRegistryKey& applications, IArchiveFileSystem& archive,
                               HostConfiguration& configuration);

}  // namespace quorbel
