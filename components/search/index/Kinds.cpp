#include <algorithm>
#include <array>

#include "components/search/index/IndexWriter.h"

namespace quorbel {

namespace {

struct CKind {
    std::string_view name;
    std::string_view extensions;  ///< each with a blank before and behind
};

constexpr std::array kKinds{
    CKind{"document", " .doc .rtf .xls .ppt .epub .djvu .ps "},  // and all whose text is read
    CKind{"picture", " .jpg .jpeg .png .gif .tif .tiff .bmp .webp .svg .heic .avif .jp2 .ico .psd .raw "},
    CKind{"music", " .mp3 .flac .ogg .oga .wav .m4a .aac .opus .aif .aiff .mid .wma "},
    CKind{"video", " .mp4 .mkv .webm .mov .avi .mpg .mpeg .m4v .ogv .wmv .mts "},
    CKind{"archive", " .zip .tar .gz .tgz .bz2 .xz .7z .rar .zst .warc .iso "},
    CKind{"email", " .eml .mbox .msg "},
    CKind{"program", " .exe .dll .so .bin .msi .deb .rpm .jar .js .css .wasm .sh .py .c .cpp .h .java "},
};

}  // namespace

std::string_view KindOf(std::string_view extension) {
    if (extension.empty()) return "other";
    if (TextFormatOf("name" + std::string(extension)) != TextFormat::None) return "document";
    for (const CKind& kind : kKinds) {
        for (std::size_t at = kind.extensions.find(extension); at != std::string_view::npos;
             at = kind.extensions.find(extension, at + 1)) {
            if (kind.extensions.substr(at + extension.size()).starts_with(' ')) return kind.name;
        }
    }
    return "other";
}

std::string ExtensionOf(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    if (dot == name.npos || dot == 0) return {};
    std::string extension(name.substr(dot));
    std::ranges::transform(extension, extension.begin(), [](char byte) {
        return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
    });
    return extension;
}

}  // namespace quorbel
