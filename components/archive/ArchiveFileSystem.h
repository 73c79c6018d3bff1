#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/com/Dispatch.h"

namespace quorbel {

/// Information about an archive file, as QueryInformation fills it. The two words change whenever the file
/// does.
struct CArchiveFileInformation {
    std::uint64_t size;      ///< bytes
    std::uint64_t modified;  ///< 100 ns units since 1601-01-01 UTC
    std::uint8_t reserved[16];
    std::uint32_t word0;
    std::uint32_t word1;
    std::uint8_t reservedEnd[8];
};
static_assert(sizeof(CArchiveFileInformation) == 48 && offsetof(CArchiveFileInformation, word0) == 32);

/// The number under which an archive file gives CArchiveFileInformation.
inline constexpr std::uint32_t kArchiveFileInformation = 48;
/// The control code that asks an archive file for the path of one of its views.
inline constexpr std::uint32_t kArchiveViewPath = 0x96190;

/// A file or folder of the archive.
class IArchiveFile : public IUnknown {
 public:
    static constexpr GUID kId{0x2F1D5C0A, 0x7B7E, 0x4C55, {0x9B, 0x0E, 0x61, 0x3C, 0x0A, 0x7D, 0x5E, 0x21}};
    /// The path under which the component serves it: `0:/` and the local path for a file, `\\?\` and the
    /// local path for a folder that was opened by its drive path.
    virtual HRESULT GetPath(std::wstring* path) = 0;
};

class IArchiveFileInformation : public IUnknown {
 public:
    static constexpr GUID kId{0xFE5359F0, 0x946A, 0x44FC, {0x98, 0x4A, 0x8D, 0x28, 0x3A, 0xC1, 0xA0, 0xA0}};
    /// Fills `buffer` (of `size` bytes) with the information of that number. E_INVALIDARG for another number
    /// or size.
    virtual HRESULT QueryInformation(std::uint32_t number, void* buffer, std::uint32_t size) = 0;
};

class IArchiveFileControl : public IUnknown {
 public:
    static constexpr GUID kId{0x9EF9DA64, 0x4DEB, 0x4490, {0xB9, 0x8F, 0x50, 0xBD, 0x75, 0x68, 0x61, 0xCE}};
    /// Sends a control code with an input block. kArchiveViewPath: the block holds the two information words
    /// (4 bytes each, little-endian), the length of the view's name in bytes (2 bytes) and the name in
    /// UTF-16LE; the output receives the view's path without drive, and `returned` its size counted in bytes
    /// of two-byte characters. `outputSize` is counted in characters.
    virtual HRESULT Control(std::uint32_t code, const void* input, std::uint32_t inputSize, wchar_t* output,
                            std::uint32_t outputSize, std::uint32_t* returned) = 0;
};

/// The archive itself.
class IArchiveSystem : public IDispatch {
 public:
    using Base = IDispatch;
    static constexpr GUID kId{0x6C0E7B54, 0x3A0D, 0x4F6B, {0x8E, 0x27, 0x15, 0x0B, 0x9D, 0x48, 0x7A, 0xC3}};
    virtual HRESULT GetVersion(std::wstring* version) = 0;
};

/// The archive's files: volume 0 is the local file system (paths `0/...`, `0\...` or `0:/...`), drive letters
/// are translated. "\" and "/" both separate. Safe to use from any thread.
class IArchiveFileSystem : public IDispatch {
 public:
    using Base = IDispatch;
    static constexpr GUID kId{0x4946E6C4, 0xBDBE, 0x4757, {0x95, 0x31, 0xAF, 0x1E, 0xCD, 0xF3, 0x3C, 0x38}};
    virtual HRESULT GetSystem(IArchiveSystem** system) = 0;
    /// Fails when there is no regular file of that path.
    virtual HRESULT OpenFile(const wchar_t* path, IArchiveFile** file) = 0;
    /// Fails when there is no folder of that path, or its drive is not configured.
    virtual HRESULT OpenFolder(const wchar_t* path, IArchiveFile** folder) = 0;
};

/// The class of the component that implements IArchiveFileSystem.
inline constexpr GUID kArchiveFileSystemClass{
    0xB0E4A6E9, 0x6EC0, 0x4453, {0xB9, 0xFC, 0xBD, 0x32, 0x73, 0x30, 0xAC, 0x1C}};

}  // namespace quorbel
