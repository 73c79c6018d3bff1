#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "components/search/text/TextExtractor.h"
#include "platform/FileDescriptor.h"

namespace quorbel {

/// The entries of a ZIP file, by name and content.
using ZipEntries = std::vector<std::pair<std::string, std::string>>;
std::string MakeZip(const ZipEntries& entries);

std::string MakeWordDocument(std::string_view body);
std::string MakeOpenDocument(std::string_view body);
/// A PDF file of one page with that line; `info` is the content of its information dictionary.
std::string MakePdf(std::string_view line, std::string_view info);

/// An open file without a name that holds these bytes.
CFileDescriptor OpenBytes(std::string_view bytes);

}  // namespace quorbel
