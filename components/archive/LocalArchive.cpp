#include "components/archive/LocalArchive.h"

#include <cstring>

#include "platform/Clock.h"
#include "platform/File.h"
#include "platform/Hash.h"
#include "platform/LocalPath.h"
#include "platform/Text.h"
#include "platform/UrlPath.h"

namespace quorbel {

namespace {

constexpr wchar_t kVersion[] = L"Quorbel Archive 7.30";
constexpr wchar_t kSettingsPath[] = L"SOFTWARE\\Quorbel\\Archive";

HRESULT ToHResult(ErrorCode code) {
    return HResultFromWin32(ToNumber(code));
}

bool IsDriveLetter(wchar_t character) noexcept {
    return (character >= L'A' && character <= L'Z') || (character >= L'a' && character <= L'z');
}

/// The archive's part of the registry, read at each use so that a change counts at once.
class CSettings {
 public:
    explicit CSettings(std::shared_ptr<IKey> localMachine) : m_localMachine(std::move(localMachine)) {}

    /// A folder without trailing separators (the local root is empty); FileNotFound when it is not
    /// configured.
    CResult<std::wstring> Folder(std::wstring_view subkey, std::wstring_view name) const {
        auto key =
            m_localMachine->Open(std::wstring(kSettingsPath).append(L"\\").append(subkey), KeyAccess::Read);
        if (!key.IsOk()) return key.Error();
        const auto value = key.Value()->Query(name);
        if (!value.IsOk()) return value.Error();
        if (value.Value().type != ValueType::Text && value.Value().type != ValueType::ExpandableText) {
            return ErrorCode::InvalidData;
        }
        std::wstring folder = value.Value().AsText();
        if (value.Value().type == ValueType::ExpandableText) folder = ExpandEnvironment(folder);
        // "/" is the local root, but an empty text is nothing that anyone means to publish.
        if (folder.empty()) return ErrorCode::BadPathname;
        while (!folder.empty() && IsSeparator(folder.back())) folder.pop_back();
        return folder;
    }

 private:
    std::shared_ptr<IKey> m_localMachine;
};

/// A 64-bit digest of everything that tells two versions of a file apart.
std::uint64_t Digest(const CFileStamp& stamp) {
    std::string bytes(sizeof stamp, '\0');
    std::memcpy(bytes.data(), &stamp, sizeof stamp);
    return Fnv1a64(bytes);
}
static_assert(sizeof(CFileStamp) == 40, "a digest of padding would not be one of the file");

class CLocalFolder final : public CComObject<IArchiveFile> {
 public:
    explicit CLocalFolder(std::wstring localPath) : m_localPath(std::move(localPath)) {}
    HRESULT GetPath(std::wstring* path) override {
        *path = L"\\\\?\\" + m_localPath;
        return S_OK;
    }

 private:
    const std::wstring m_localPath;
};

class CLocalFile final : public CComObject<IArchiveFile, IArchiveFileInformation, IArchiveFileControl> {
 public:
    CLocalFile(std::wstring localPath, const CFileStamp& stamp, std::shared_ptr<const CSettings> settings)
        : m_localPath(std::move(localPath)), m_stamp(stamp), m_settings(std::move(settings)) {}

    HRESULT GetPath(std::wstring* path) override {
        *path = L"0:" + m_localPath;
        // What a name holds after the mark would be taken for a revision, unless one follows.
        if (m_localPath.find(kRevisionMark) != std::wstring::npos) *path += kRevisionMark;
        return S_OK;
    }

    HRESULT QueryInformation(std::uint32_t number, void* buffer, std::uint32_t size) override {
        CArchiveFileInformation information{};
        if (number != kArchiveFileInformation || size != sizeof information) return E_INVALIDARG;
        const std::uint64_t digest = Digest(m_stamp);
        information.size = m_stamp.size;
        information.modified = ToFileTime(std::chrono::nanoseconds(m_stamp.modified));
        information.word0 = static_cast<std::uint32_t>(digest);
        information.word1 = static_cast<std::uint32_t>(digest >> 32);
        std::memcpy(buffer, &information, sizeof information);
        return S_OK;
    }

    HRESULT Control(std::uint32_t code, const void* input, std::uint32_t inputSize, wchar_t* output,
                    std::uint32_t outputSize, std::uint32_t* returned) override {
        constexpr std::uint32_t kNameOffset = 10;
        if (code != kArchiveViewPath || inputSize < kNameOffset) return E_INVALIDARG;
        const std::string_view block(static_cast<const char*>(input), inputSize);
        const auto byteAt = [block](std::size_t at) { return static_cast<unsigned char>(block[at]); };
        const std::uint32_t nameBytes = byteAt(8) + byteAt(9) * 0x100U;
        if (inputSize != kNameOffset + nameBytes || nameBytes % 2 != 0) return E_INVALIDARG;
        const auto path = ViewPath(FromUtf16Bytes(block.substr(kNameOffset)));
        if (!path.IsOk()) return ToHResult(path.Error());
        if (path.Value().size() > outputSize) return ToHResult(ErrorCode::InsufficientBuffer);
        path.Value().copy(output, path.Value().size());
        *returned = static_cast<std::uint32_t>(path.Value().size() * 2);
        return S_OK;
    }

 private:
    /// Path of a view, without the leading slash, with a revision that changes with the view file.
    CResult<std::wstring> ViewPath(const std::wstring& name) const {
        const bool isName = !name.empty() && name.find_first_of(L"/\\") == std::wstring::npos;
        if (!isName || !StaysWithin(L"", name)) return ErrorCode::InvalidName;
        const auto views = m_settings->Folder(L"", L"Views");
        if (!views.IsOk()) return views.Error();
        const std::wstring path = views.Value() + m_localPath + L"/" + name;
        if (!IsSeparator(path.front()) || !StaysWithin(views.Value(), path)) return ErrorCode::BadPathname;
        const auto stamp = StampOf(path);
        if (!stamp.IsOk()) return stamp.Error();
        return path.substr(1) + kRevisionMark + ToHex(Digest(stamp.Value()), 16);
    }

    const std::wstring m_localPath;
    const CFileStamp m_stamp;
    const std::shared_ptr<const CSettings> m_settings;
};

class CLocalArchiveSystem final : public CWithoutDispatch<CComObject<IArchiveSystem>> {
 public:
    HRESULT GetVersion(std::wstring* version) override {
        *version = kVersion;
        return S_OK;
    }
};

class CLocalArchive final : public CWithoutDispatch<CComObject<IArchiveFileSystem>> {
 public:
    explicit CLocalArchive(std::shared_ptr<const CSettings> settings) : m_settings(std::move(settings)) {}

    HRESULT GetSystem(IArchiveSystem** system) override {
        CComPtr<IArchiveSystem> object(new CLocalArchiveSystem);
        return object->QueryInterface(IArchiveSystem::kId, reinterpret_cast<void**>(system));
    }

    HRESULT OpenFile(const wchar_t* path, IArchiveFile** file) override {
        const auto local = Translate(path);
        if (!local.IsOk()) return ToHResult(local.Error());
        const auto stamp = StampOf(local.Value());
        if (!stamp.IsOk()) return ToHResult(stamp.Error());
        CComPtr<IArchiveFile> object(new CLocalFile(local.Value(), stamp.Value(), m_settings));
        return object->QueryInterface(IArchiveFile::kId, reinterpret_cast<void**>(file));
    }

    HRESULT OpenFolder(const wchar_t* path, IArchiveFile** folder) override {
        const auto local = Translate(path);
        if (!local.IsOk()) return ToHResult(local.Error());
        if (const auto opened = quorbel::OpenFolder(local.Value()); !opened.IsOk()) {
            return ToHResult(opened.Error());
        }
        CComPtr<IArchiveFile> object(new CLocalFolder(local.Value()));
        return object->QueryInterface(IArchiveFile::kId, reinterpret_cast<void**>(folder));
    }

 private:
    /// The local path, with "/" alone as separator, of a path on volume 0 or on a drive.
    CResult<std::wstring> Translate(std::wstring_view path) const {
        constexpr std::wstring_view kLocalPrefix = L"\\\\?\\";
        std::wstring local;
        if (path.starts_with(kLocalPrefix)) {
            local = path.substr(kLocalPrefix.size());
        } else if (path.starts_with(L"0:")) {
            local = path.substr(2);
        } else if (path.starts_with(L"0")) {
            local = path.substr(1);
        } else if (path.size() >= 2 && IsDriveLetter(path[0]) && path[1] == L':') {
            const auto root = DriveRoot(path[0]);
            if (!root.IsOk()) return root.Error();
            local = root.Value();
            if (path.size() > 2 && !IsSeparator(path[2])) local += L'/';
            local += path.substr(2);
            if (local.empty()) local = L"/";
        }
        if (local.empty() || !IsSeparator(local.front())) return ErrorCode::BadPathname;
        std::replace(local.begin(), local.end(), L'\\', L'/');
        return local;
    }

    /// The folder that a drive letter stands for; C is the local root unless it is configured.
    CResult<std::wstring> DriveRoot(wchar_t letter) const {
        auto root = m_settings->Folder(L"Drives", std::wstring(1, letter));
        const bool isMissing = root.Error() == ErrorCode::FileNotFound;
        if (isMissing && FoldCase(letter) == L'c') return std::wstring();
        return root;
    }

    const std::shared_ptr<const CSettings> m_settings;
};

}  // namespace

CComRegistration RegisterLocalArchive(std::shared_ptr<IKey> localMachine) {
    auto settings = std::make_shared<const CSettings>(std::move(localMachine));
    return {kArchiveFileSystemClass, [settings](const GUID& interfaceId, void** object) {
                CComPtr<IArchiveFileSystem> archive(new CLocalArchive(settings));
                return archive->QueryInterface(interfaceId, object);
            }};
}

}  // namespace quorbel
