#include <gtest/gtest.h>

#include "components/search/text/Problems.h"
#include "components/search/text/TextExtractor.h"

namespace quorbel {
namespace {

using namespace std::literals;

CExtractedText Read(std::string_view document) {
    return ExtractText(TextFormat::Html, document);
}

TEST(HtmlText, KeepsWhatAReaderSees) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"", ""},
        {"plain  text\n\there", "plain text here"},
        {"<p>one<p>two", "one\ntwo"},
        {"w<b>or</b>d <i>and</i> more", "word and more"},
        {"a<br>b<hr/>c", "a\nb\nc"},
        {"<table><tr><td>a<td>b<tr><th>c</table>d", "a b\nc\nd"},
        {"<ul><li>a</li><li>b</li></ul>", "a\nb"},
        {"a<img src=x>b", "a b"},
        {"a<script>no</script>b<style>no</style>c", "abc"},
        {"a<SCRIPT>'</scripty>' <!-- </ScRiPt >b", "ab"},
        {"a<script>never closed", "a"},
        {"a<template>x<template>y</template>z</template>b", "ab"},
        {"a</template>b", "ab"},
        {"a<!-- <p>no</p> -->b<!-->c<!--->d<!doctype html>e<?x?>f", "abcdef"},
        {"a<!-- never closed <p>b", "a"},
        {"a<![CDATA[<b> & c]]>d", "a<b> & cd"},
        {"<textarea>a<b></textarea>", "a<b>"},
        {"1 < 2 <3 <> </> </ x>4", "1 < 2 <3 <> 4"},
        {"<a title='>' href=\">\">x</a>", "x"},
        {"<a b=c/d>x", "x"},
        {"<a =>x", "x"},
        {"x<a href='never closed>y", "x"},
        {"x<a", "x"},
        {"x<", "x<"},
        {"a\x01\x02\x7F"
         "b",
         "a b"},
    };
    for (const auto& [document, text] : cases) {
        EXPECT_EQ(Read(document).text, text) << document;
        EXPECT_EQ(Read(document).problem, "") << document;
    }
}

TEST(HtmlText, ReplacesCharacterReferences) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"&amp;&lt;&gt;&quot;&apos;", "&<>\"'"},
        {"caf&eacute; &Auml;", "caf\xC3\xA9 \xC3\x84"},
        {"&copy 2020 &copyright;", "\xC2\xA9 2020 &copyright;"},
        {"&#65;&#x42;&#X43;&#66", "ABCB"},
        {"&#128;&#x92;", "\xE2\x82\xAC\xE2\x80\x99"},
        {"&#55296;&#x110000;&#99999999999999999999;", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"a&#0;b", "ab"},
        {"& &; &# &#; &#x; &unknown; &", "& &; &# &#; &#x; &unknown; &"},
        {"&lt;p&gt;", "<p>"},
    };
    for (const auto& [document, text] : cases) EXPECT_EQ(Read(document).text, text) << document;
}

TEST(HtmlText, HasTitleAndAuthorOfTheHead) {
    const std::tuple<std::string_view, std::string_view, std::string_view, std::string_view> cases[] = {
        {"<title> A &amp;\n<b> </title><p>x", "A & <b>", "", "x"},
        {"<TITLE>A</TITLE><svg><title>B</title></svg>", "A", "", "B"},
        {"<title></title><title>B</title>", "B", "", ""},
        {"<meta name=author content='Ann &amp; Bo'>", "", "Ann & Bo", ""},
        {"<META CONTENT=Ann NAME='Author'/><meta name=author content=Bo>", "", "Ann", ""},
        {"<meta name=description content=no>", "", "", ""},
        {"<meta name=author><meta content=Bo>", "", "", ""},
    };
    for (const auto& [document, title, author, text] : cases) {
        const CExtractedText result = Read(document);
        EXPECT_EQ(result.title, title) << document;
        EXPECT_EQ(result.author, author) << document;
        EXPECT_EQ(result.text, text) << document;
    }
}

TEST(HtmlText, IsReadInTheEncodingThatIsMarkedDeclaredOrLikely) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"\xEF\xBB\xBF<meta charset=latin1>\xC3\xA4", "\xC3\xA4"},
        {"\xFF\xFE<\0p\0>\0\xE4\0"sv, "\xC3\xA4"},
        {"<meta charset=utf-8>\xC3\xA4 \xE4", "\xC3\xA4 \xEF\xBF\xBD"},
        {"<meta charset='ISO-8859-1'>\xE4\x80", "\xC3\xA4\xE2\x82\xAC"},
        {"<meta http-equiv=Content-Type content='text/html; charset=windows-1251'>\xE4", "\xD0\xB4"},
        {"<?xml version='1.0' encoding='iso-8859-2'?><p>\xB1", "\xC4\x85"},
        {"<meta charset=Shift_JIS>\x93\xFA\x96\x7B", "\xE6\x97\xA5\xE6\x9C\xAC"},
        {"<meta charset=euc-kr>\xC7\xD1", "\xED\x95\x9C"},
        {"<meta charset=gb2312>\xD6\xD0", "\xE4\xB8\xAD"},
        {"<meta charset=unknown-name>\xE4", "\xC3\xA4"},
        {"<meta charset='../../etc/passwd'>\xE4", "\xC3\xA4"},
        {"\xC3\xA4", "\xC3\xA4"},
        {"\xE4", "\xC3\xA4"},
    };
    for (const auto& [document, text] : cases) EXPECT_EQ(Read(document).text, text) << document;
    EXPECT_EQ(Read("<p>a\0b"sv).problem, kNoText);
}

/// Each of these would take hours, or the whole stack, if a byte's cost grew with what came before it. The
/// test program's own time limit ends it then.
TEST(HtmlText, TakesNoLongerForHostileDocuments) {
    constexpr std::size_t kSize = 2 << 20;
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"", "<div>"},
        {"", "</b>"},
        {"", "<b>"},
        {"<p ", "a "},
        {"<p a='", "x"},
        {"", "&zzzzzzzz;"},
        {"", "&"},
        {"", "<!--"},
        {"", "<!"},
        {"", "<![CDATA["},
        {"<script>", "</"},
        {"", "<script></script"},
        {"<title>", "</titl"},
        {"<meta ", "name=a "},
        {"", "<template>"},
        {"", "<meta charset=x>"},
        {"", "<"},
        {"", "</"},
        {"<p ", "="},
        {"<p a=", "\" "},
        {"", "&#9999999999"},
        {"", "<title>a</title>"},
        {"<", "a"},
        {"", "<a<"},
    };
    for (const auto& [start, repeated] : cases) {
        std::string document(start);
        while (document.size() < kSize) document.append(repeated);
        EXPECT_LE(Read(document).text.size(), document.size()) << start << repeated;
    }
}

}  // namespace
}  // namespace quorbel
