#include "components/search/worker/PdfText.h"

#include <cerrno>
#include <sys/wait.h>
#include <unistd.h>

#include "components/search/text/HtmlText.h"
#include "components/search/text/PlainText.h"
#include "components/search/text/Problems.h"
#include "components/search/text/TextEncoding.h"
#include "components/search/worker/Filter.h"

namespace quorbel {

namespace {

/// The program writes the properties as the head of an HTML document and then the text as it is between two
/// tags; only in the head are "<" and "&" escaped.
constexpr std::string_view kTextBegin = "<pre>\n";
constexpr std::string_view kTextEnd = "</pre>\n</body>\n</html>\n";

std::string ProblemOfComplaints(std::string_view complaints) {
    for (const std::string_view sign : {"ncorrect password", "security handler", "ncrypt"}) {
        if (complaints.find(sign) != complaints.npos) return std::string(kEncrypted);
    }
    return std::string(kDamaged);
}

CExtractedText Parse(std::string_view output) {
    const std::size_t begin = output.find(kTextBegin);
    if (begin == output.npos) return Problem(kDamaged);
    CExtractedText result = ReadHtml(output.substr(0, begin));
    output.remove_prefix(begin + kTextBegin.size());
    if (output.ends_with(kTextEnd)) output.remove_suffix(kTextEnd.size());
    while (!output.empty() && (output.back() == '\n' || output.back() == '\f')) output.remove_suffix(1);
    result.text = CleanLines(IsUtf8(output) ? std::string(output) : DecodeText(TextEncoding::Utf8, output));
    return result;
}

}  // namespace

CExtractedText ReadPdf(int file, const std::string& program) {
    if (::lseek(file, 0, SEEK_SET) < 0) return Problem(kUnreadable);
    constexpr std::size_t kHead = 64 << 10;
    const CFilterRun run =
        RunFilter({program, "-htmlmeta", "-nopgbrk", "-enc", "UTF-8", "-", "-"}, file, kLargestText + kHead);
    if (run.error == ENOENT) return Problem("pdftotext, of the package poppler-utils, is not installed");
    if (run.error != 0) return Problem("pdftotext cannot be started");
    if (run.isTooMuch) return Problem(kTooMuchText);
    if (!WIFEXITED(run.status)) return Problem("pdftotext failed");
    if (WEXITSTATUS(run.status) != 0) return Problem(ProblemOfComplaints(run.complaints));
    CExtractedText result = Parse(run.output);
    if (result.text.size() > kLargestText) return Problem(kTooMuchText);
    return result;
}

}  // namespace quorbel
