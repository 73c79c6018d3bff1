#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/Error.h"
#include "platform/FileDescriptor.h"

namespace quorbel {

/// The file of a dump: written under another name, which it loses when it is complete. What is not complete
/// is removed. Only its owner can read it.
class CDumpFile {
 public:
    static constexpr std::size_t kKept = 8;

    /// Also makes the folder, in its parent, and removes what helpers that were killed left of dumps of the
    /// service. AlreadyExists when another helper writes that very file.
    static CResult<CDumpFile> Create(std::filesystem::path file);
    ~CDumpFile();
    CDumpFile(CDumpFile&&) noexcept = default;
    CDumpFile& operator=(CDumpFile&&) = delete;

    int Descriptor() const noexcept { return m_descriptor.Get(); }
    /// Gives the file its name, or one with a number when that is taken, and removes all but it and the
    /// newest other dumps of the service.
    ErrorCode Complete();

    /// The name of the service in the file name of a dump; none when it is no dump's.
    static std::optional<std::string> ServiceOf(const std::string& name);

 private:
    CDumpFile(std::filesystem::path file, CFileDescriptor descriptor)
        : m_file(std::move(file)), m_descriptor(std::move(descriptor)) {}
    void RemoveOld(const std::filesystem::path& written) const;

    std::filesystem::path m_file;
    CFileDescriptor m_descriptor;
    bool m_isComplete = false;
};

}  // namespace quorbel
