#include "components/search/worker/FileReader.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include "components/search/text/Problems.h"
#include "components/search/worker/OfficeOpenXml.h"
#include "components/search/worker/OpenDocument.h"
#include "components/search/worker/PdfText.h"

namespace quorbel {

namespace {

CExtractedText ReadWhole(int file, TextFormat format) {
    std::string bytes;
    while (bytes.size() <= kLargestTextFile) {
        constexpr std::size_t kStep = 1 << 20;
        const std::size_t had = bytes.size();
        bytes.resize(had + kStep);
        const ssize_t got = ::pread(file, bytes.data() + had, kStep, static_cast<off_t>(had));
        bytes.resize(had + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        if (got < 0 && errno != EINTR) return Problem(kUnreadable);
        if (got == 0) return ExtractText(format, bytes);
    }
    return Problem(kTooLarge);
}

}  // namespace

CExtractedText ReadTextOfFile(int file, TextFormat format) {
    struct stat status {};
    if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) return Problem(kUnreadable);
    switch (format) {
        case TextFormat::Pdf: return ReadPdf(file);
        case TextFormat::OfficeOpenXml: return ReadOfficeOpenXml(file);
        case TextFormat::OpenDocument: return ReadOpenDocument(file);
        case TextFormat::None:
        case TextFormat::Plain:
        case TextFormat::Markdown:
        case TextFormat::Html: break;
    }
    return ReadWhole(file, format);
}

}  // namespace quorbel
