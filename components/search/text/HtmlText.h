#pragma once

#include "components/search/text/TextExtractor.h"

namespace quorbel {

/// The text of an HTML or XHTML document, in one pass over its bytes, in the manner of the HTML Standard's
/// tokenizer. The encoding is that of the byte-order mark, else the declared one, else UTF-8 when the bytes
/// are, else Windows-1252. May be longer than kLargestText.
CExtractedText ReadHtml(std::string_view bytes);

}  // namespace quorbel
