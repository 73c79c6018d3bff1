#pragma once

#include "components/search/text/TextExtractor.h"

namespace quorbel {

/// The text of an open file of any format, read in this process and its children. What fails is the problem
/// in the result. May move the file's offset. Throws std::bad_alloc.
CExtractedText ReadTextOfFile(int file, TextFormat format);

}  // namespace quorbel
