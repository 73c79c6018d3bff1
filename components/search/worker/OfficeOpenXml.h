#pragma once

#include "components/search/text/TextExtractor.h"

namespace quorbel {

/// The text of a document of word processing (with foot- and endnotes, comments, headers and footers), a
/// workbook (strings and numbers of its cells, names of its sheets) or a presentation (slides and their
/// notes, in order); title and author of its core properties. Documents embedded in it are not read.
CExtractedText ReadOfficeOpenXml(int file);

}  // namespace quorbel
