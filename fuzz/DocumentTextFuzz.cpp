#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

#include "components/search/text/TextEncoding.h"
#include "components/search/text/TextExtractor.h"
#include "components/search/worker/FileReader.h"
#include "platform/FileDescriptor.h"

using namespace quorbel;

namespace {

/// Either text or a problem, bounded, and nothing in it that cannot be stored.
void Check(const CExtractedText& result) {
    if (!result.problem.empty() && !(result.text + result.title + result.author).empty()) std::abort();
    if (result.text.size() > kLargestText) std::abort();
    if (result.title.size() > kLargestProperty || result.author.size() > kLargestProperty) std::abort();
    for (const std::string_view text : {result.text, result.title, result.author}) {
        if (!IsUtf8(text) || text.find('\0') != text.npos) std::abort();
    }
}

CExtractedText ReadAsFile(TextFormat format, std::string_view bytes) {
    const CFileDescriptor file(::memfd_create("document", MFD_CLOEXEC));
    if (::write(file.Get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) std::abort();
    return ReadTextOfFile(file.Get(), format);
}

}  // namespace

/// The first byte says what the others are.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0]) {
        case 'h': Check(ExtractText(TextFormat::Html, input)); break;
        case 'm': Check(ExtractText(TextFormat::Markdown, input)); break;
        case 'p': Check(ExtractText(TextFormat::Plain, input)); break;
        case 'o': Check(ReadAsFile(TextFormat::OfficeOpenXml, input)); break;
        case 'd': Check(ReadAsFile(TextFormat::OpenDocument, input)); break;
        default: break;
    }
    return 0;
}
