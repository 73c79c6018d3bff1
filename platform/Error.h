#pragma once

#include <cassert>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace quorbel {

/// A Win32 error number (WinError.h numbering); 0 is success. The platform layer reports every failure of the
/// operating system as one of these.
enum class [[nodiscard]] ErrorCode : std::uint32_t{
    Success = 0,
    InvalidFunction = 1,
    FileNotFound = 2,
    PathNotFound = 3,
    TooManyOpenFiles = 4,
    AccessDenied = 5,
    InvalidHandle = 6,
    NotEnoughMemory = 8,
    InvalidData = 13,
    NotSameDevice = 17,
    WriteProtect = 19,
    WriteFault = 29,
    ReadFault = 30,
    GenFailure = 31,
    SharingViolation = 32,
    NotSupported = 50,
    InvalidParameter = 87,
    BrokenPipe = 109,
    DiskFull = 112,
    CallNotImplemented = 120,
    InsufficientBuffer = 122,
    InvalidName = 123,
    ModuleNotFound = 126,
    ProcNotFound = 127,
    DirectoryNotEmpty = 145,
    BadPathname = 161,
    Busy = 170,
    AlreadyExists = 183,
    FilenameExcedsRange = 206,
    BadFileType = 222,
    FileTooLarge = 223,
    WaitTimeout = 258,
    NoMoreItems = 259,
    Directory = 267,
    MessageNotFound = 317,
    PasswordTooShort = 615,
    OperationAborted = 995,
    CannotOpenRegistry = 1011,
    RegistryCorrupt = 1015,
    RegistryIoFailed = 1016,
    KeyDeleted = 1018,
    NoServiceThread = 1054,
    ServiceDoesNotExist = 1060,
    ServiceNotActive = 1062,
    ServiceControllerConnectFailed = 1063,
    ServiceExists = 1073,
    IoDevice = 1117,
    TooManyLinks = 1142,
    NotFound = 1168,
    Cancelled = 1223,
    PrivilegeNotHeld = 1314,
    InternalError = 1359,
    NoSystemResources = 1450,
    Timeout = 1460,
    UnsupportedType = 1630,
    ServiceManagerUnavailable = 1722,
    CantResolveFilename = 1921,
    EncodingFailed = 8252,
    DecodingFailed = 8253,
    AddressAlreadyInUse = 10048,
    AddressNotAvailable = 10049,
    ConnectionRefused = 10061,
    BadKey = 0x80090003,
    BadData = 0x80090005,
    BadSignature = 0x80090006,
    CryptographyFailed = 0x80090020,
};

/// Translates a POSIX errno value. Values without a counterpart give GenFailure; 0 gives Success.
ErrorCode ErrorFromErrno(int value) noexcept;

/// The system's English text for an error number, ending with a full stop; none when it has no text.
std::optional<std::wstring> SystemMessage(std::uint32_t number);

inline std::uint32_t ToNumber(ErrorCode code) noexcept {
    return static_cast<std::uint32_t>(code);
}

/// A value, or the error number that says why there is none.
template <class T>
class [[nodiscard]] CResult {
 public:
    CResult(T value) : m_content(std::in_place_index<0>, std::move(value)) {}  // NOLINT: implicit by design
    CResult(ErrorCode error) : m_content(std::in_place_index<1>, error) {      // NOLINT: implicit by design
        assert(error != ErrorCode::Success);
    }

    bool IsOk() const noexcept { return m_content.index() == 0; }
    ErrorCode Error() const noexcept { return IsOk() ? ErrorCode::Success : std::get<1>(m_content); }

    T& Value() & { return std::get<0>(m_content); }
    const T& Value() const& { return std::get<0>(m_content); }
    /// By value, so that a range-for over a call's result does not outlive it.
    T Value() && { return std::get<0>(std::move(m_content)); }

 private:
    std::variant<T, ErrorCode> m_content;
};

/// Says in the code that a failure is of no consequence here.
template <class T>
void Ignore(const T&) noexcept {}

}  // namespace quorbel
