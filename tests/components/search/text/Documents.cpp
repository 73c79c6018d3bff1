#include "tests/components/search/text/Documents.h"

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

namespace quorbel {

std::string MakeZip(const ZipEntries& entries) {
    std::size_t room = 1 << 16;
    for (const auto& [name, content] : entries) room += content.size() + 2 * name.size() + 1024;
    std::string bytes(room, '\0');
    std::size_t used = 0;
    archive* writer = ::archive_write_new();
    ::archive_write_set_format_zip(writer);
    ::archive_write_set_bytes_in_last_block(writer, 1);
    EXPECT_EQ(::archive_write_open_memory(writer, bytes.data(), bytes.size(), &used), ARCHIVE_OK);
    for (const auto& [name, content] : entries) {
        archive_entry* entry = ::archive_entry_new();
        ::archive_entry_set_pathname(entry, name.c_str());
        ::archive_entry_set_filetype(entry, AE_IFREG);
        ::archive_entry_set_perm(entry, 0644);
        ::archive_entry_set_size(entry, static_cast<la_int64_t>(content.size()));
        EXPECT_EQ(::archive_write_header(writer, entry), ARCHIVE_OK);
        ::archive_write_data(writer, content.data(), content.size());
        ::archive_entry_free(entry);
    }
    EXPECT_EQ(::archive_write_close(writer), ARCHIVE_OK);
    ::archive_write_free(writer);
    bytes.resize(used);
    return bytes;
}

std::string MakeWordDocument(std::string_view body) {
    return MakeZip({{"[Content_Types].xml", "<Types/>"},
                    {"word/document.xml",
                     R"(<?xml version="1.0"?><w:document xmlns:w="urn:w" xmlns:mc="urn:mc"><w:body>)" +
                         std::string(body) + "</w:body></w:document>"}});
}

std::string MakeOpenDocument(std::string_view body) {
    return MakeZip(
        {{"mimetype", "application/vnd.oasis.opendocument.text"},
         {"content.xml",
          R"(<o:document-content xmlns:o="urn:o" xmlns:text="urn:t" xmlns:table="urn:b"><o:body>)" +
              std::string(body) + "</o:body></o:document-content>"}});
}

std::string MakePdf(std::string_view line, std::string_view info) {
    const std::string content = "BT /F1 12 Tf 72 720 Td (" + std::string(line) + ") Tj ET";
    const std::string objects[] = {
        "<</Type/Catalog/Pages 2 0 R>>",
        "<</Type/Pages/Kids[3 0 R]/Count 1>>",
        "<</Type/Page/Parent 2 0 R/MediaBox[0 0 612 792]/Resources<</Font<</F1 4 0 R>>>>/Contents 5 0 R>>",
        "<</Type/Font/Subtype/Type1/BaseFont/Helvetica/Encoding/WinAnsiEncoding>>",
        "<</Length " + std::to_string(content.size()) + ">>stream\n" + content + "\nendstream",
        "<<" + std::string(info) + ">>"};
    std::string pdf = "%PDF-1.4\n";
    std::string table = "xref\n0 " + std::to_string(std::size(objects) + 1) + "\n0000000000 65535 f \n";
    for (std::size_t i = 0; i != std::size(objects); ++i) {
        std::string offset = std::to_string(pdf.size());
        offset.insert(0, 10 - offset.size(), '0');
        table += offset + " 00000 n \n";
        pdf += std::to_string(i + 1) + " 0 obj" + objects[i] + "endobj\n";
    }
    const std::string start = std::to_string(pdf.size());
    return pdf + table + "trailer<</Size " + std::to_string(std::size(objects) + 1) +
           "/Root 1 0 R/Info 6 0 R>>\nstartxref\n" + start + "\n%%EOF\n";
}

CFileDescriptor OpenBytes(std::string_view bytes) {
    CFileDescriptor file(::memfd_create("document", MFD_CLOEXEC));
    EXPECT_EQ(::write(file.Get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    ::lseek(file.Get(), 0, SEEK_SET);
    return file;
}

}  // namespace quorbel
