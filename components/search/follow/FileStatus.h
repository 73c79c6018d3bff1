#pragma once

#include <string>
#include <sys/stat.h>

#include "components/search/index/IndexWriter.h"
#include "platform/FileDescriptor.h"

namespace quorbel {

CDocumentStamp StampOf(const struct stat& status) noexcept;

/// Opens a regular file for reading, without waiting; no symbolic link is followed. FileNotFound for what is
/// no regular file.
CResult<CFileDescriptor> OpenRegularFile(const std::string& path);
/// The whole content; FileTooLarge when that is more than `most` bytes.
CResult<std::string> ReadWhole(int file, std::size_t most);

}  // namespace quorbel
