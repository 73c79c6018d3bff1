#pragma once

#include "components/search/text/TextExtractor.h"

namespace quorbel {

/// The text of an OpenDocument file of any kind; title and author of its metadata. Deleted text that is kept
/// for the record of changes, and documents embedded in it, are not read.
CExtractedText ReadOpenDocument(int file);

}  // namespace quorbel
