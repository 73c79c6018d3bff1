#pragma once

#include <string>

#include "components/search/text/TextExtractor.h"

namespace quorbel {

/// The program of poppler-utils that reads PDF files.
inline constexpr const char* kPdfProgram = "/usr/bin/pdftotext";

/// The text, title and author of a PDF file, read by a child process. One that cannot be opened without a
/// password is encrypted; one that can is read.
CExtractedText ReadPdf(int file, const std::string& program = kPdfProgram);

}  // namespace quorbel
