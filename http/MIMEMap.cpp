#include "http/MIMEMap.h"

#include "platform/Text.h"

namespace quorbel {

namespace {

struct CMediaType {
    const wchar_t* extension;
    const wchar_t* type;
};

constexpr CMediaType kMediaTypes[] = {
    // clang-format off
    {L"aac", L"audio/aac"},
    {L"abw", L"application/x-abiword"},
    {L"arc", L"application/x-freearc"},
    {L"asf", L"video/x-ms-asf"},
    {L"avif", L"image/avif"},
    {L"avi", L"video/x-msvideo"},
    {L"azw", L"application/vnd.amazon.ebook"},
    {L"bin", L"application/octet-stream"},
    {L"bmp", L"image/bmp"},
    {L"bz", L"application/x-bzip"},
    {L"bz2", L"application/x-bzip2"},
    {L"cda", L"application/x-cdf"},
    {L"cgm", L"image/cgm"},
    {L"csh", L"application/x-csh"},
    {L"css", L"text/css"},
    {L"csv", L"text/csv"},
    {L"doc", L"application/msword"},
    {L"docx", L"application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {L"dvb", L"video/vnd.dvb.file"},
    {L"eot", L"application/vnd.ms-fontobject"},
    {L"epub", L"application/epub+zip"},
    {L"f4v", L"video/x-f4v"},
    {L"flv", L"video/x-flv"},
    {L"gz", L"gzip"},
    {L"gif", L"image/gif"},
    {L"h261", L"video/h261"},
    {L"h263", L"video/h263"},
    {L"h264", L"video/h264"},
    {L"htm", L"text/html"},
    {L"html", L"text/html"},
    {L"ico", L"image/vnd.microsoft.icon"},
    {L"ics", L"text/calendar"},
    {L"jar", L"application/java-archive"},
    {L"jpe", L"image/jpeg"},
    {L"jpg", L"image/jpeg"},
    {L"jpeg", L"image/jpeg"},
    {L"jpgv", L"video/jpeg"},
    {L"jpgm", L"video/jpm"},
    {L"jpm", L"video/jpm"},
    {L"js", L"text/javascript"},
    {L"json", L"application/json"},
    {L"jsonld", L"application/ld+json"},
    {L"m1v", L"video/mpeg"},
    {L"m2t", L"video/mp2t"},
    {L"m2ts", L"video/mp2t"},
    {L"m2v", L"video/mpeg"},
    {L"m4v", L"video/x-m4v"},
    {L"mid", L"audio/midi"},
    {L"midi", L"audio/midi"},
    {L"mj2", L"video/mj2"},
    {L"mjp2", L"video/mj2"},
    {L"mjs", L"text/javascript"},
    {L"mkv", L"video/x-matroska"},
    {L"mk3d", L"video/x-matroska"},
    {L"mks", L"video/x-matroska"},
    {L"mng", L"video/x-mng"},
    {L"mov", L"video/quicktime"},
    {L"mp3", L"audio/mpeg"},
    {L"mp4", L"video/mp4"},
    {L"mp4v", L"video/mp4"},
    {L"mpe", L"video/mpeg"},
    {L"mpeg", L"video/mpeg"},
    {L"mpg4", L"video/mp4"},
    {L"mpg", L"video/mpeg"},
    {L"mpkg", L"application/vnd.apple.installer+xml"},
    {L"mts", L"video/mp2t"},
    {L"mxf", L"application/mxf"},
    {L"qt", L"video/quicktime"},
    {L"odp", L"application/vnd.oasis.opendocument.presentation"},
    {L"ods", L"application/vnd.oasis.opendocument.spreadsheet"},
    {L"odt", L"application/vnd.oasis.opendocument.text"},
    {L"oga", L"audio/ogg"},
    {L"ogv", L"video/ogg"},
    {L"ogx", L"application/ogg"},
    {L"opus", L"audio/opus"},
    {L"otf", L"font/otf"},
    {L"png", L"image/png"},
    {L"pdf", L"application/pdf"},
    {L"php", L"application/x-httpd-php"},
    {L"ppt", L"application/vnd.ms-powerpoint"},
    {L"pptx", L"application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    {L"rar", L"application/vnd.rar"},
    {L"rtf", L"application/rtf"},
    {L"sh", L"application/x-sh"},
    {L"sgi", L"image/sgi"},
    {L"svg", L"image/svg+xml"},
    {L"svgz", L"image/svg+xml"},
    {L"tar", L"application/x-tar"},
    {L"tif", L"image/tiff"},
    {L"tiff", L"image/tiff"},
    {L"ts", L"video/mp2t"},
    {L"ttf", L"font/ttf"},
    {L"txt", L"text/plain"},
    {L"vsd", L"application/vnd.visio"},
    {L"vob", L"video/x-ms-vob"},
    {L"wav", L"audio/wav"},
    {L"weba", L"audio/webm"},
    {L"webm", L"video/webm"},
    {L"webp", L"image/webp"},
    {L"wm", L"video/x-ms-wm"},
    {L"wmv", L"video/x-ms-wmv"},
    {L"woff", L"font/woff"},
    {L"woff2", L"font/woff2"},
    {L"xhtml", L"application/xhtml+xml"},
    {L"xls", L"application/vnd.ms-excel"},
    {L"xlsx", L"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {L"xml", L"application/xml"},
    {L"xul", L"application/vnd.mozilla.xul+xml"},
    {L"zip", L"application/zip"},
    {L"3gp", L"video/3gpp"},
    {L"3g2", L"video/3gpp2"},
    {L"7z", L"application/x-7z-compressed"},
    // clang-format on
};

}  // namespace

const CMIMEMap& CMIMEMap::Instance() {
    static const CMIMEMap map;
    return map;
}

CMIMEMap::CMIMEMap() {
    for (const CMediaType& entry : kMediaTypes) m_types.emplace(entry.extension, entry.type);
}

const std::wstring& CMIMEMap::GetContentType(std::wstring_view extension) const {
    static const std::wstring unknown = L"application/octet-stream";
    if (extension.starts_with(L'.')) extension.remove_prefix(1);
    const auto found = m_types.find(extension);
    return found == m_types.end() ? unknown : found->second;
}

}  // namespace quorbel
