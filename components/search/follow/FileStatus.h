#pragma once

#include <optional>
#include <string>
#include <sys/stat.h>

#include "components/search/index/IndexWriter.h"
#include "platform/FileDescriptor.h"

namespace quorbel {

CDocumentStamp StampOf(const struct stat& status) noexcept;

/// Opens a regular file for reading, without waiting, if it is still the one of that stamp; else
/// SharingViolation. A symbolic link is not followed.
CResult<CFileDescriptor> OpenUnchanged(const std::string& path, const CDocumentStamp& stamp);
/// The whole content; FileTooLarge when that is more than `most` bytes.
CResult<std::string> ReadWhole(int file, std::size_t most);

/// What a failure to open or read a file says of the file; none when it says nothing, but of this moment.
std::optional<CExtractedText> LastingProblem(ErrorCode error);

}  // namespace quorbel
