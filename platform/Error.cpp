#include "platform/Error.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace quorbel {

namespace {

struct CErrorText {
    ErrorCode code;
    const wchar_t* text;
};

constexpr std::array kTexts{
    CErrorText{ErrorCode::Success, L"The operation completed successfully."},
    CErrorText{ErrorCode::InvalidFunction, L"Incorrect function."},
    CErrorText{ErrorCode::FileNotFound, L"The system cannot find the file specified."},
    CErrorText{ErrorCode::PathNotFound, L"The system cannot find the path specified."},
    CErrorText{ErrorCode::TooManyOpenFiles, L"The system cannot open the file: too many files are open."},
    CErrorText{ErrorCode::AccessDenied, L"Access is denied."},
    CErrorText{ErrorCode::InvalidHandle, L"The handle is invalid."},
    CErrorText{ErrorCode::NotEnoughMemory, L"Not enough memory is available for this operation."},
    CErrorText{ErrorCode::InvalidData, L"The data is invalid."},
    CErrorText{ErrorCode::NotSameDevice, L"The file cannot be moved to a different disk drive."},
    CErrorText{ErrorCode::WriteProtect, L"The media is write protected."},
    CErrorText{ErrorCode::WriteFault, L"The system cannot write to the specified device."},
    CErrorText{ErrorCode::ReadFault, L"The system cannot read from the specified device."},
    CErrorText{ErrorCode::GenFailure, L"A device attached to the system is not functioning."},
    CErrorText{ErrorCode::SharingViolation, L"The file is being used by another process."},
    CErrorText{ErrorCode::HandleDiskFull, L"The disk is full."},
    CErrorText{ErrorCode::NotSupported, L"The request is not supported."},
    CErrorText{ErrorCode::FileExists, L"The file exists."},
    CErrorText{ErrorCode::InvalidParameter, L"The parameter is incorrect."},
    CErrorText{ErrorCode::BrokenPipe, L"The pipe has been ended."},
    CErrorText{ErrorCode::DiskFull, L"There is not enough space on the disk."},
    CErrorText{ErrorCode::CallNotImplemented, L"This function is not supported on this system."},
    CErrorText{ErrorCode::InsufficientBuffer, L"The data area passed to a system call is too small."},
    CErrorText{ErrorCode::InvalidName, L"The file name, directory name or volume label syntax is incorrect."},
    CErrorText{ErrorCode::ModuleNotFound, L"The specified module could not be found."},
    CErrorText{ErrorCode::DirectoryNotEmpty, L"The directory is not empty."},
    CErrorText{ErrorCode::BadPathname, L"The specified path is invalid."},
    CErrorText{ErrorCode::Busy, L"The requested resource is in use."},
    CErrorText{ErrorCode::AlreadyExists, L"Cannot create a file when that file already exists."},
    CErrorText{ErrorCode::FilenameExcedsRange, L"The file name or extension is too long."},
    CErrorText{ErrorCode::BadFileType, L"The file type is not supported here."},
    CErrorText{ErrorCode::FileTooLarge, L"The file size exceeds the limit allowed."},
    CErrorText{ErrorCode::MoreData, L"More data is available."},
    CErrorText{ErrorCode::WaitTimeout, L"The wait operation timed out."},
    CErrorText{ErrorCode::NoMoreItems, L"No more data is available."},
    CErrorText{ErrorCode::Directory, L"The directory name is invalid."},
    CErrorText{ErrorCode::MessageNotFound, L"The system cannot find the text of the message."},
    CErrorText{ErrorCode::OperationAborted, L"The I/O operation has been aborted."},
    CErrorText{ErrorCode::BadDatabase, L"The configuration registry database is corrupt."},
    CErrorText{ErrorCode::BadKey, L"The configuration registry key is invalid."},
    CErrorText{ErrorCode::CannotOpenRegistry, L"The configuration registry key could not be opened."},
    CErrorText{ErrorCode::RegistryCorrupt, L"The registry file is damaged, or is no registry file."},
    CErrorText{ErrorCode::RegistryIoFailed, L"The registry file could not be read or written."},
    CErrorText{ErrorCode::KeyDeleted, L"The registry key has been marked for deletion."},
    CErrorText{ErrorCode::IoDevice, L"The request could not be performed because of an I/O device error."},
    CErrorText{ErrorCode::TooManyLinks, L"Too many links lead to the file."},
    CErrorText{ErrorCode::Cancelled, L"The operation was cancelled."},
    CErrorText{ErrorCode::PrivilegeNotHeld, L"A required privilege is not held by the client."},
    CErrorText{ErrorCode::NoSystemResources, L"Insufficient system resources exist for this operation."},
    CErrorText{ErrorCode::Timeout, L"The operation returned because the time limit expired."},
    CErrorText{ErrorCode::CantResolveFilename, L"The name of the file cannot be resolved by the system."},
    CErrorText{ErrorCode::AddressAlreadyInUse, L"Only one use of each socket address is permitted."},
    CErrorText{ErrorCode::AddressNotAvailable, L"The requested address is not valid on this machine."},
    CErrorText{ErrorCode::ConnectionRefused, L"The target machine actively refused the connection."},
};

}  // namespace

ErrorCode ErrorFromErrno(int value) noexcept {
    switch (value) {
        case 0: return ErrorCode::Success;
        case ENOENT: return ErrorCode::FileNotFound;
        case ENOTDIR: return ErrorCode::PathNotFound;
        case EISDIR: return ErrorCode::Directory;
        case EACCES: return ErrorCode::AccessDenied;
        case EPERM: return ErrorCode::PrivilegeNotHeld;
        case EROFS: return ErrorCode::WriteProtect;
        case EEXIST: return ErrorCode::AlreadyExists;
        case ENOTEMPTY: return ErrorCode::DirectoryNotEmpty;
        case ENAMETOOLONG: return ErrorCode::FilenameExcedsRange;
        case ELOOP: return ErrorCode::CantResolveFilename;
        case EMLINK: return ErrorCode::TooManyLinks;
        case EMFILE:
        case ENFILE: return ErrorCode::TooManyOpenFiles;
        case ENOSPC:
        case EDQUOT: return ErrorCode::DiskFull;
        case EFBIG: return ErrorCode::FileTooLarge;
        case ENOMEM: return ErrorCode::NotEnoughMemory;
        case EAGAIN: return ErrorCode::NoSystemResources;
        case EBADF: return ErrorCode::InvalidHandle;
        case EINVAL: return ErrorCode::InvalidParameter;
        case EIO: return ErrorCode::IoDevice;
        case EBUSY:
        case ETXTBSY: return ErrorCode::Busy;
        case EPIPE: return ErrorCode::BrokenPipe;
        case EXDEV: return ErrorCode::NotSameDevice;
        case ENOSYS: return ErrorCode::CallNotImplemented;
        case EOPNOTSUPP: return ErrorCode::NotSupported;
        case ECANCELED: return ErrorCode::OperationAborted;
        case ETIMEDOUT: return ErrorCode::Timeout;
        case EADDRINUSE: return ErrorCode::AddressAlreadyInUse;
        case EADDRNOTAVAIL: return ErrorCode::AddressNotAvailable;
        case ECONNREFUSED: return ErrorCode::ConnectionRefused;
        case ENXIO:
        case ENODEV: return ErrorCode::BadFileType;
        default: return ErrorCode::GenFailure;
    }
}

std::optional<std::wstring> SystemMessage(std::uint32_t number) {
    auto found = std::find_if(kTexts.begin(), kTexts.end(),
                              [number](const CErrorText& entry) { return ToNumber(entry.code) == number; });
    if (found == kTexts.end()) return std::nullopt;
    return std::wstring(found->text);
}

}  // namespace quorbel
