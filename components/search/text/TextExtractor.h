#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quorbel {

/// How the text of a file is found in its bytes.
enum class TextFormat {
    None,  ///< it has no text that is read: a picture, a program, an unknown format
    Plain,
    Markdown,
    Html,
    Pdf,
    OfficeOpenXml,  ///< docx, xlsx, pptx
    OpenDocument    ///< odt, ods, odp
};

/// The format that a file's name stands for, by its extension without regard to case.
TextFormat TextFormatOf(std::string_view name) noexcept;
/// True for formats whose files are read by the worker process only.
bool NeedsWorker(TextFormat format) noexcept;

/// What a file says. All texts are valid UTF-8 without NUL; paragraphs are separated by line feeds.
struct CExtractedText {
    std::string text;
    std::string title;   ///< empty when the format or the file has none
    std::string author;  ///< likewise
    std::string
        problem;  ///< why there is no text: an English sentence fragment; empty when there was no problem
};

/// Bytes of a file that is read at all, and of the text taken from it.
inline constexpr std::size_t kLargestTextFile = 32 << 20;
inline constexpr std::size_t kLargestText = 32 << 20;
/// Bytes of a title, an author or a problem; what is longer is cut off.
inline constexpr std::size_t kLargestProperty = 4096;

/// The text of a file whose format does not need the worker. Plain text is UTF-8, UTF-16 with a byte-order
/// mark, or else Windows-1252; bytes that are no text at all are a problem. Throws std::bad_alloc.
CExtractedText ExtractText(TextFormat format, std::string_view bytes);

}  // namespace quorbel
