#include "platform/crypto/KeyStorage.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/stat.h>

#include "platform/Error.h"
#include "platform/FileDescriptor.h"
#include "platform/Text.h"
#include "platform/com/Com.h"
#include "platform/crypto/AesGcm.h"
#include "platform/crypto/Digest.h"
#include "platform/crypto/Random.h"
#include "platform/crypto/Secret.h"

namespace quorbel {

namespace {

using namespace std::string_view_literals;

constexpr std::size_t kLongestName = 200;
constexpr std::string_view kHead = "QbKeyAES\1\0\0\0"sv;  // magic and version
constexpr std::size_t kChecksumSize = 32;
constexpr std::size_t kFileSize = kHead.size() + sizeof(AesKey) + kChecksumSize;

SECURITY_STATUS ToStatus(ErrorCode error) {
    return HResultFromWin32(ToNumber(error));
}

SECURITY_STATUS StatusFromErrno() {
    return ToStatus(ErrorFromErrno(errno));
}

bool IsKeyName(std::string_view name) {
    const auto isAllowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.';
    };
    return !name.empty() && name.size() <= kLongestName && name.front() != '.' &&
           std::all_of(name.begin(), name.end(), isAllowed);
}

/// The bytes of a key, wiped at the end.
struct CKeyBytes {
    AesKey bytes{};

    CKeyBytes() = default;
    CKeyBytes(const CKeyBytes&) = delete;
    CKeyBytes& operator=(const CKeyBytes&) = delete;
    ~CKeyBytes() { ::OPENSSL_cleanse(bytes.data(), bytes.size()); }
    std::string_view View() const { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }
};

class CStoredKey final : public IStoredKey {
 public:
    explicit CStoredKey(std::string_view name) : m_name(name) {}

    SECURITY_STATUS Encrypt(std::string_view plain, std::string& sealed) const override {
        AesNonce nonce;
        if (const ErrorCode error = FillRandom(nonce); error != ErrorCode::Success) return ToStatus(error);
        const auto content = SealAesGcm(m_key.bytes, nonce, m_name, plain);
        if (!content) return NTE_FAIL;
        sealed.assign(nonce.begin(), nonce.end());
        sealed += *content;
        return kKeyStorageSuccess;
    }

    SECURITY_STATUS Decrypt(std::string_view sealed, std::string& plain) const override {
        AesNonce nonce;
        if (sealed.size() < nonce.size()) return NTE_BAD_DATA;
        std::copy_n(sealed.begin(), nonce.size(), nonce.begin());
        auto content = OpenAesGcm(m_key.bytes, nonce, m_name, sealed.substr(nonce.size()));
        if (!content) return NTE_BAD_DATA;
        plain = *std::move(content);
        return kKeyStorageSuccess;
    }

    ErrorCode MakeUp() { return FillRandom(m_key.bytes); }

    /// The content of a key's file; empty when the cryptographic library fails.
    CSecretBytes ToFile() const {
        std::string content;
        content.reserve(kFileSize);
        content.append(kHead).append(m_key.View());
        const std::string checksum = Checksum();
        return checksum.empty() ? CSecretBytes() : CSecretBytes(std::move(content.append(checksum)));
    }

    /// False for what is no undamaged file of a key of this name.
    bool FromFile(std::string_view content) {
        if (content.size() != kFileSize || !content.starts_with(kHead)) return false;
        std::copy_n(content.begin() + kHead.size(), m_key.bytes.size(), m_key.bytes.begin());
        return content.substr(kFileSize - kChecksumSize) == Checksum();
    }

 private:
    /// With the name, so that a file under another key's name does not pass for that key.
    std::string Checksum() const { return Sha256({kHead, m_key.View(), m_name}); }

    const std::string m_name;
    CKeyBytes m_key;
};

/// At most one byte more than a key's file has.
CResult<CSecretBytes> ReadKeyFile(int file) {
    std::string content(kFileSize + 1, '\0');
    std::size_t size = 0;
    while (size < content.size()) {
        const ssize_t count = ::read(file, content.data() + size, content.size() - size);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return ErrorFromErrno(errno);
        if (count == 0) break;
        size += static_cast<std::size_t>(count);
    }
    content.resize(size);
    return CSecretBytes(std::move(content));
}

ErrorCode WriteKeyFile(int file, std::string_view content) {
    while (!content.empty()) {
        const ssize_t count = ::write(file, content.data(), content.size());
        if (count < 0 && errno != EINTR) return ErrorFromErrno(errno);
        if (count > 0) content.remove_prefix(static_cast<std::size_t>(count));
    }
    return ::fsync(file) == 0 ? ErrorCode::Success : ErrorFromErrno(errno);
}

/// A file of a folder that is written under a passing name and goes again with this object. Under its real
/// name it stands complete or not at all, whenever the process or the machine may stop.
class CNewFile {
 public:
    CNewFile(int folder, const std::string& name) : m_folder(folder), m_name(name) {}
    ~CNewFile() {
        if (m_file.IsOpen()) ::unlinkat(m_folder, m_passingName.c_str(), 0);
    }
    CNewFile(const CNewFile&) = delete;
    CNewFile& operator=(const CNewFile&) = delete;

    ErrorCode Write(std::string_view content) {
        std::array<unsigned char, 8> random;
        if (const ErrorCode error = FillRandom(random); error != ErrorCode::Success) return error;
        m_passingName = "." + m_name + ".";
        for (unsigned char byte : random) m_passingName += ToUtf8(ToHex(byte, 2));
        m_file = CFileDescriptor(::openat(m_folder, m_passingName.c_str(),
                                          O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
        return m_file.IsOpen() ? WriteKeyFile(m_file.Get(), content) : ErrorFromErrno(errno);
    }

    /// AlreadyExists when the name is taken.
    ErrorCode Publish() {
        if (::linkat(m_folder, m_passingName.c_str(), m_folder, m_name.c_str(), 0) != 0)
            return ErrorFromErrno(errno);
        return ::fsync(m_folder) == 0 ? ErrorCode::Success : ErrorFromErrno(errno);
    }

 private:
    const int m_folder;
    const std::string m_name;
    std::string m_passingName;
    CFileDescriptor m_file;
};

class CKeyFolder final : public IKeyStorageProvider {
 public:
    explicit CKeyFolder(std::filesystem::path path) : m_path(std::move(path)) {}

    SECURITY_STATUS OpenKey(std::string_view name, std::unique_ptr<IStoredKey>& key) override {
        if (!IsKeyName(name)) return NTE_INVALID_PARAMETER;
        const CFileDescriptor file(
            ::open((m_path / name).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
        if (!file.IsOpen()) return errno == ENOENT ? NTE_BAD_KEYSET : StatusFromErrno();
        struct stat status {};
        if (::fstat(file.Get(), &status) != 0) return StatusFromErrno();
        if (!S_ISREG(status.st_mode)) return NTE_BAD_DATA;
        const auto content = ReadKeyFile(file.Get());
        if (!content.IsOk()) return ToStatus(content.Error());
        auto read = std::make_unique<CStoredKey>(name);
        if (!read->FromFile(content.Value().Get())) return NTE_BAD_DATA;
        key = std::move(read);
        return kKeyStorageSuccess;
    }

    SECURITY_STATUS CreatePersistedKey(std::string_view name, std::unique_ptr<IStoredKey>& key) override {
        if (!IsKeyName(name)) return NTE_INVALID_PARAMETER;
        CStoredKey made(name);
        if (const ErrorCode error = made.MakeUp(); error != ErrorCode::Success) return ToStatus(error);
        const CSecretBytes content = made.ToFile();
        if (content.IsEmpty()) return NTE_FAIL;
        const ErrorCode error = Store(std::string(name), content.Get());
        if (error != ErrorCode::Success && error != ErrorCode::AlreadyExists) return ToStatus(error);
        return OpenKey(name, key);
    }

 private:
    ErrorCode Store(const std::string& name, std::string_view content) const {
        const CFileDescriptor folder(::open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!folder.IsOpen()) return ErrorFromErrno(errno);
        CNewFile file(folder.Get(), name);
        const ErrorCode error = file.Write(content);
        return error == ErrorCode::Success ? file.Publish() : error;
    }

    const std::filesystem::path m_path;
};

}  // namespace

std::unique_ptr<IKeyStorageProvider> OpenKeyStorageProvider(std::filesystem::path folder) {
    return std::make_unique<CKeyFolder>(std::move(folder));
}

}  // namespace quorbel
