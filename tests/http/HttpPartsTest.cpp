#include "http/BuiltInHandlers.h"
#include "http/ByteRange.h"
#include "http/DirectoryMappings.h"
#include "http/FileRangeBuffer.h"
#include "http/FormBody.h"
#include "http/MIMEMap.h"
#include "http/RoutingCache.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

TEST(ByteRange, IsReadLikeTheFieldSays) {
    using Kind = CByteRange::Kind;
    constexpr std::uint64_t kSize = 1000;
    const std::tuple<const wchar_t*, std::uint64_t, Kind, std::uint64_t, std::uint64_t> cases[] = {
        {L"bytes=0-99", 9, Kind::Part, 0, 100},
        {L"bytes=500-", 100, Kind::Part, 500, 100},
        {L"bytes=500-", 1000, Kind::Part, 500, 500},
        {L"bytes=0-", 1000, Kind::Part, 0, 1000},
        {L"bytes=999-999", 9, Kind::Part, 999, 1},
        {L"bytes=0-18446744073709551615", 9, Kind::Part, 0, 1000},
        {L"bytes=1-18446744073709551616", 9, Kind::Whole, 0, 1000},
        {L"bytes=18446744073709551615-", 9, Kind::Unsatisfiable, 0, 0},
        {L"bytes=18446744073709551616-", 9, Kind::Whole, 0, 1000},
        {L"bytes=1000-", 9, Kind::Unsatisfiable, 0, 0},
        {L"bytes=1000-2000", 9, Kind::Unsatisfiable, 0, 0},
        {L"bytes=5-4", 9, Kind::Whole, 0, 1000},
        {L"bytes=2000-1000", 9, Kind::Whole, 0, 1000},
        {L"bytes=-500", 9, Kind::Whole, 0, 1000},
        {L"bytes=7", 9, Kind::Part, 7, 9},
        {L"bytes=7-x", 9, Kind::Part, 7, 9},
        {L"bytes=0-1,4-5", 9, Kind::Part, 0, 2},
        {L"bytes= 1-2", 9, Kind::Whole, 0, 1000},
        {L"bytes=+1-2", 9, Kind::Whole, 0, 1000},
        {L"items=0-5", 9, Kind::Whole, 0, 1000},
        {L"Bytes=0-5", 9, Kind::Whole, 0, 1000},
        {L"", 9, Kind::Whole, 0, 1000},
    };
    for (const auto& [value, cap, kind, first, length] : cases) {
        SCOPED_TRACE(::testing::PrintToString(std::wstring(value)));
        const CByteRange range = CByteRange::Parse(value, kSize, cap);
        ASSERT_EQ(range.kind, kind);
        if (kind == Kind::Unsatisfiable) continue;
        EXPECT_EQ(range.first, first);
        EXPECT_EQ(range.length, length);
    }
    EXPECT_EQ(CByteRange::Parse(L"bytes=0-", 0, 9).kind, Kind::Unsatisfiable);
}

TEST(EntityTag, IsTheHashOfTheUtf16SourceInBase64) {
    // Computed independently: FNV-1a of the two-byte code units, least significant byte of the hash first.
    EXPECT_EQ(EntityTag(L""), L"JSMihOSc8ss=");
    EXPECT_EQ(EntityTag(L"0:/srv/docs/a.txt-00000001-0000ABCD"), L"poDPedCwuGw=");
    EXPECT_EQ(EntityTag(L"\U0001F4DC"), L"CLB0uA8OGvY=");
}

TEST(MIMEMap, TypesAreFoundByExtensionWithoutRegardToCase) {
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {{L"jpg", L"image/jpeg"},
                                                               {L"JPG", L"image/jpeg"},
                                                               {L".jpg", L"image/jpeg"},
                                                               {L"gz", L"gzip"},
                                                               {L"mjs", L"text/javascript"},
                                                               {L"7z", L"application/x-7z-compressed"},
                                                               {L"3g2", L"video/3gpp2"},
                                                               {L"aac", L"audio/aac"},
                                                               {L"..jpg", L"application/octet-stream"},
                                                               {L"", L"application/octet-stream"},
                                                               {L"exe", L"application/octet-stream"}};
    for (const auto& [extension, type] : cases)
        EXPECT_EQ(CMIMEMap::Instance().GetContentType(extension), type);
}

TEST(FormBody, ContentTypesOfFormsAreRecognised) {
    EXPECT_TRUE(IsFormContentType(L"application/x-www-form-urlencoded"));
    EXPECT_TRUE(IsFormContentType(L"x ;\tApplication/X-WWW-form-urlencoded ; charset=utf-8"));
    EXPECT_FALSE(IsFormContentType(L"application/x-www-form-urlencoded-not"));
    EXPECT_FALSE(IsFormContentType(L""));
}

class CRangeBufferTest : public ::testing::Test {
 protected:
    using Buffer = concurrency::streams::details::basic_file_range_buffer<std::uint8_t>;
    concurrency::streams::istream Open(std::uint64_t offset, std::uint64_t length) {
        auto file = std::make_shared<const CFile>(CFile::Open(FromUtf8((m_folder / "f").string())).Value());
        return concurrency::streams::streambuf<std::uint8_t>(std::make_shared<Buffer>(file, offset, length))
            .create_istream();
    }
    CTemporaryFolder m_folder;
};

TEST_F(CRangeBufferTest, ReadsNothingOutsideItsRange) {
    std::string content(10000, '\0');
    for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i % 251);
    WriteFile(m_folder / "f", content);
    auto stream = Open(100, 9000);
    EXPECT_EQ(stream.streambuf().size(), 9000u);
    EXPECT_EQ(static_cast<std::int64_t>(stream.tell()), 100) << "positions are the file's";
    std::string read;
    while (read.size() < 50) read.push_back(static_cast<char>(stream.streambuf().bumpc().get()));
    EXPECT_EQ(stream.streambuf().getc().get(), static_cast<unsigned char>(content[150]));
    EXPECT_EQ(stream.streambuf().nextc().get(), static_cast<unsigned char>(content[151]));
    EXPECT_EQ(stream.streambuf().ungetc().get(), static_cast<unsigned char>(content[150]));
    std::vector<std::uint8_t> rest(20000);
    std::size_t count = 0;
    while (const std::size_t part = stream.streambuf().getn(rest.data() + count, rest.size() - count).get()) {
        count += part;
    }
    read.append(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(count));
    EXPECT_EQ(read, content.substr(100, 9000));
    EXPECT_EQ(stream.streambuf().bumpc().get(), Buffer::traits::eof());
    EXPECT_EQ(static_cast<std::int64_t>(stream.seek(50)), -1);
    EXPECT_EQ(static_cast<std::int64_t>(stream.seek(9101)), -1);
    EXPECT_EQ(static_cast<std::int64_t>(stream.seek(9099)), 9099);
    EXPECT_EQ(stream.streambuf().bumpc().get(), static_cast<unsigned char>(content[9099]));
}

TEST_F(CRangeBufferTest, AFileThatBecameShorterFailsTheRead) {
    WriteFile(m_folder / "f", std::string(1000, 'x'));
    auto stream = Open(0, 1000);
    std::filesystem::resize_file(m_folder / "f", 10);
    std::vector<std::uint8_t> bytes(1000);
    EXPECT_EQ(stream.streambuf().getn(bytes.data(), bytes.size()).get(), 10u);
    EXPECT_THROW(stream.streambuf().getn(bytes.data(), bytes.size()).get(), std::runtime_error);
    EXPECT_THROW(stream.streambuf().bumpc().get(), std::runtime_error);
}

TEST(RoutingCache, KeepsWhatIsFreshAndForgetsTheOldestFirst) {
    CRoutingCache cache;
    const auto first = std::make_shared<CFailureHandler>();
    const auto second = std::make_shared<CFailureHandler>();
    const std::uint64_t generation = cache.Generation();
    EXPECT_EQ(cache.Insert(AccessLevel::User, L"k", first, generation), first);
    EXPECT_EQ(cache.Insert(AccessLevel::User, L"k", second, generation), first) << "the first insert wins";
    EXPECT_FALSE(cache.Find(AccessLevel::Admin, L"k").has_value());
    EXPECT_EQ(cache.Insert(AccessLevel::User, L"none", nullptr, generation), nullptr);
    EXPECT_EQ(cache.Find(AccessLevel::User, L"none"), std::optional<CRoutingCache::Handler>(nullptr));

    cache.Clear();
    EXPECT_EQ(cache.Insert(AccessLevel::User, L"k", first, generation), first);
    EXPECT_FALSE(cache.Find(AccessLevel::User, L"k").has_value()) << "searched before the clearing";

    const std::uint64_t now = cache.Generation();
    for (std::size_t i = 0; i <= CRoutingCache::kMaximum; ++i) {
        cache.Insert(AccessLevel::User, std::to_wstring(i), first, now);
    }
    EXPECT_FALSE(cache.Find(AccessLevel::User, L"0").has_value());
    EXPECT_TRUE(cache.Find(AccessLevel::User, L"1").has_value());
    const std::wstring longKey(CRoutingCache::kMaximumCharacters - 5, L'x');
    cache.Insert(AccessLevel::User, longKey, first, now);
    EXPECT_TRUE(cache.Find(AccessLevel::User, longKey).has_value());
    EXPECT_TRUE(cache.Find(AccessLevel::User, std::to_wstring(CRoutingCache::kMaximum)).has_value());
    EXPECT_FALSE(cache.Find(AccessLevel::User, std::to_wstring(CRoutingCache::kMaximum - 1)).has_value());
}

}  // namespace
}  // namespace quorbel
