#include "data/results/RowsetQueryInfo.h"

namespace quorbel {

namespace {

bool IsText(const CColumn& column) {
    const DBTYPE type = column.info.wType & kTypeBits;
    return type == DBTYPE_BSTR || type == DBTYPE_STR || type == DBTYPE_WSTR;
}

std::wstring Cell(const wchar_t* element, const CColumn& column, const std::wstring& content) {
    return std::wstring(L"    <") + element + L" align=\"" + (IsText(column) ? L"left" : L"right") + L"\">" +
           content + L"</" + element + L">\r\n";
}

}  // namespace

std::wstring ResultStream<std::uint8_t>::XSLQueryInfo::Header() {
    std::wstring titles;
    std::wstring values;
    for (const CColumn& column : Columns()) {
        titles += Cell(L"th", column, column.name);
        values += Cell(L"td", column, L"<xsl:value-of select=\"" + column.name + L"\"/>");
    }
    return L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
           L"<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">\r\n"
           L"<xsl:template match=\"/\">\r\n"
           L"<html>\r\n"
           L"<body>\r\n"
           L"  <table>\r\n"
           L"   <tr style=\"background-color:#EEEEEE\">\r\n" +
           titles +
           L"   </tr>\r\n"
           L"   <xsl:for-each select=\"data/row\">\r\n"
           L"   <tr>\r\n" +
           values +
           L"   </tr>\r\n"
           L"   </xsl:for-each>\r\n"
           L"  </table>\r\n"
           L"</body>\r\n"
           L"</html>\r\n"
           L"</xsl:template>\r\n"
           L"</xsl:stylesheet>\r\n";
}

}  // namespace quorbel
