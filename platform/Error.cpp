#include "platform/Error.h"

#include <cerrno>

namespace quorbel {

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
    switch (static_cast<ErrorCode>(number)) {
        case ErrorCode::Success: return L"The operation completed successfully.";
        case ErrorCode::InvalidFunction: return L"Incorrect function.";
        case ErrorCode::FileNotFound: return L"The system cannot find the file specified.";
        case ErrorCode::PathNotFound: return L"The system cannot find the path specified.";
        case ErrorCode::TooManyOpenFiles: return L"The system cannot open the file: too many files are open.";
        case ErrorCode::AccessDenied: return L"Access is denied.";
        case ErrorCode::InvalidHandle: return L"The handle is invalid.";
        case ErrorCode::NotEnoughMemory: return L"Not enough memory is available for this operation.";
        case ErrorCode::InvalidData: return L"The data is invalid.";
        case ErrorCode::NotSameDevice: return L"The file cannot be moved to a different disk drive.";
        case ErrorCode::WriteProtect: return L"The media is write protected.";
        case ErrorCode::WriteFault: return L"The system cannot write to the specified device.";
        case ErrorCode::ReadFault: return L"The system cannot read from the specified device.";
        case ErrorCode::GenFailure: return L"A device attached to the system is not functioning.";
        case ErrorCode::SharingViolation:
            return L"The process cannot access the file because it is being used by another process.";
        case ErrorCode::NotSupported: return L"The request is not supported.";
        case ErrorCode::InvalidParameter: return L"The parameter is incorrect.";
        case ErrorCode::BrokenPipe: return L"The pipe has been ended.";
        case ErrorCode::DiskFull: return L"There is not enough space on the disk.";
        case ErrorCode::CallNotImplemented: return L"This function is not supported on this system.";
        case ErrorCode::InsufficientBuffer: return L"The data area passed to a system call is too small.";
        case ErrorCode::InvalidName:
            return L"The file name, directory name or volume label syntax is incorrect.";
        case ErrorCode::ModuleNotFound: return L"The specified module could not be found.";
        case ErrorCode::ProcNotFound: return L"The specified procedure could not be found.";
        case ErrorCode::DirectoryNotEmpty: return L"The directory is not empty.";
        case ErrorCode::BadPathname: return L"The specified path is invalid.";
        case ErrorCode::Busy: return L"The requested resource is in use.";
        case ErrorCode::AlreadyExists: return L"Cannot create a file when that file already exists.";
        case ErrorCode::FilenameExcedsRange: return L"The file name or extension is too long.";
        case ErrorCode::BadFileType: return L"The file type is not supported here.";
        case ErrorCode::FileTooLarge: return L"The file size exceeds the limit allowed.";
        case ErrorCode::WaitTimeout: return L"The wait operation timed out.";
        case ErrorCode::NoMoreItems: return L"No more data is available.";
        case ErrorCode::Directory: return L"The directory name is invalid.";
        case ErrorCode::MessageNotFound: return L"The system cannot find the text of the message.";
        case ErrorCode::PasswordTooShort: return L"The password is too short.";
        case ErrorCode::OperationAborted: return L"The I/O operation has been aborted.";
        case ErrorCode::CannotOpenRegistry: return L"The configuration registry key could not be opened.";
        case ErrorCode::RegistryCorrupt: return L"The registry file is damaged, or is no registry file.";
        case ErrorCode::RegistryIoFailed: return L"The registry file could not be read or written.";
        case ErrorCode::KeyDeleted: return L"The registry key has been marked for deletion.";
        case ErrorCode::NoServiceThread: return L"A thread could not be created for the service.";
        case ErrorCode::ServiceDoesNotExist: return L"The service is not installed.";
        case ErrorCode::ServiceNotActive: return L"The service has not been started.";
        case ErrorCode::ServiceControllerConnectFailed:
            return L"The service manager did not start this process.";
        case ErrorCode::ServiceExists: return L"The service is installed already.";
        case ErrorCode::IoDevice:
            return L"The request could not be performed because of an I/O device error.";
        case ErrorCode::TooManyLinks: return L"Too many links lead to the file.";
        case ErrorCode::NotFound: return L"Element not found.";
        case ErrorCode::Cancelled: return L"The operation was cancelled.";
        case ErrorCode::PrivilegeNotHeld: return L"A required privilege is not held by the client.";
        case ErrorCode::InternalError: return L"An internal error occurred.";
        case ErrorCode::NoSystemResources: return L"Insufficient system resources exist for this operation.";
        case ErrorCode::Timeout: return L"The operation returned because the time limit expired.";
        case ErrorCode::UnsupportedType: return L"Data of this type is not supported.";
        case ErrorCode::ServiceManagerUnavailable:
            return L"The service manager (systemd) does not run here, or cannot be reached.";
        case ErrorCode::CantResolveFilename: return L"The name of the file cannot be resolved by the system.";
        case ErrorCode::EncodingFailed: return L"An encoding error has occurred.";
        case ErrorCode::DecodingFailed: return L"A decoding error has occurred.";
        case ErrorCode::AddressAlreadyInUse: return L"Only one use of each socket address is permitted.";
        case ErrorCode::AddressNotAvailable: return L"The requested address is not valid on this machine.";
        case ErrorCode::ConnectionRefused: return L"The target machine actively refused the connection.";
        case ErrorCode::BadKey: return L"The key is not valid, or not of the kind needed.";
        case ErrorCode::BadData: return L"The cryptographic data is not well formed.";
        case ErrorCode::BadSignature: return L"The signature is not valid.";
        case ErrorCode::CryptographyFailed: return L"The cryptographic library failed.";
    }
    return std::nullopt;
}

}  // namespace quorbel
