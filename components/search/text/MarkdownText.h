#pragma once

#include "components/search/text/TextExtractor.h"

namespace quorbel {

/// The text of a Markdown document, given as lines of UTF-8. Title and author are those of the front matter;
/// else the title is the first heading. Marks of headings, emphasis and code are left out.
CExtractedText ReadMarkdown(std::string_view lines);

}  // namespace quorbel
