#include "LibService/trace/TraceArguments.h"
#include "LibService/trace/TraceFile.h"
#include "LibService/trace/TraceFileReader.h"
#include "tests/LibService/trace/TraceFileDecoder.h"

namespace quorbel {
namespace {

using Bytes = std::vector<std::uint8_t>;

class CNamed final : public CTraceLoggable {
 public:
    explicit CNamed(std::string name) : m_name(std::move(name)) {}
    const char* TraceName() const override { return m_name.c_str(); }

 private:
    const std::string m_name;
};

TEST(TraceBuffer, WritesTheBytesOfItsRecords) {
    CTraceBuffer buffer;
    ASSERT_TRUE(buffer.Append(0xC0010001, 0, 0x0102030405060708, {}));
    ASSERT_TRUE(buffer.Append(0x000100CC, 3, 0x0102030405060708, Bytes{1, 0, 1, 'x'}));
    ASSERT_TRUE(buffer.Append(0xC0010001, 1, 0x0102030405060708 + 0x1FF, Bytes{3}));
    ASSERT_TRUE(buffer.Append(0x000100CC, 1, 0x0102030405060708, {}));  // the clock was set back
    EXPECT_EQ(buffer.RecordCount(), 4U);
    const Bytes expected = {
        46,   0,                                                              // length
        0,    0,    0x00, 0xE0, 8,    7,    6,    5,    4,    3,    2,    1,  // full time, 8 bytes
        1,    3,    0x04, 0x00, 0,    1,    0,    1,    'x',                  // no time passed
        0,    1,    0x01, 0x20, 0xFF, 0x01, 3,                                //
        1,    1,    0x00, 0xE0, 0x01, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
        0x01, 0x00, 0x01, 0xC0, 0xCC, 0x00, 0x01, 0x00};
    Bytes image = buffer.Image();
    EXPECT_EQ(image.size(), std::size_t{image[0]} + 8);
    image[0] = 46;
    EXPECT_EQ(image, expected);
}

TEST(TraceBuffer, TakesARecordOnlyIfItsFieldsAndTheIdentifiersFit) {
    // 4 bytes of fields, 8 of the first time; then a record leaves room for 4 bytes an identifier and 6 more.
    const Bytes most(kMostArgumentBytes);
    for (std::size_t last = 0; last < 40; ++last) {
        CTraceBuffer buffer;
        ASSERT_TRUE(buffer.Append(1, 0, ~std::uint64_t{0}, most));
        const std::size_t left = CTraceBuffer::kBlockSize - 2 - 12 - most.size();
        const Bytes arguments(left - last);
        const bool expected = arguments.size() <= kMostArgumentBytes && left > 4 * 2 + 6 + arguments.size() &&
                              left >= 4 + 8 + arguments.size();
        EXPECT_EQ(buffer.Append(2, 0, 1ULL << 60, arguments), expected) << last;
        EXPECT_EQ(buffer.RecordCount(), expected ? 2U : 1U);
        EXPECT_EQ((buffer.Image().size() - buffer.Image()[0] - 256 * buffer.Image()[1]) / 4,
                  expected ? 2U : 1U);
    }
    CTraceBuffer identifiers;
    for (std::uint32_t id = 0; id < CTraceBuffer::kMostIdentifiers; ++id)
        ASSERT_TRUE(identifiers.Append(id * 512, 0, 1, {})) << id;
    EXPECT_FALSE(identifiers.Append(0xFFFFFFFF, 0, 1, {}));
    EXPECT_TRUE(identifiers.Append(254 * 512, 0, 1, {}));
}

TEST(TraceFile, HoldsEightBuffersAnd255Strings) {
    const CNamed object("Object");
    CTraceFile file("Service", 100, 1);
    std::uint64_t number = 100;
    while (file.Append(number, 1, object, number, Bytes(8000))) ++number;
    EXPECT_EQ(number, 100U + 16);
    EXPECT_EQ(file.EndRecord(), number);
    EXPECT_FALSE(file.BlockOf(99).has_value());
    EXPECT_EQ(file.BlockOf(103)->first, 102U);
    EXPECT_FALSE(file.BlockOf(116).has_value());

    std::vector<std::unique_ptr<CNamed>> objects;
    CTraceFile names("Service", 0, 2);
    for (number = 0; number < 300; ++number) {
        objects.push_back(std::make_unique<CNamed>(std::to_string(number)));
        if (!names.Append(number, 1, *objects.back(), 5, {})) break;
    }
    EXPECT_EQ(number, 254U);
    EXPECT_TRUE(names.Append(number, 1, *objects[253], 5, {}));
}

/// A file of three buffers, of which the first and the last are marked, and what it should read as.
CTraceFile MakeFile(const CTraceLoggable& first, const CTraceLoggable& second,
                    std::vector<CDecodedRecord>& records) {
    CTraceFile file("QBHTTPService", 7, 1);
    std::set<std::uint64_t> blocks;
    for (std::uint64_t number = 7; blocks.size() < 4; ++number) {
        const CTraceLoggable& object = number % 3 == 0 ? second : first;
        const Bytes arguments(number % 5 == 0 ? 1200 : number % 7, static_cast<std::uint8_t>(number));
        const std::uint64_t time = 133'000'000'000'000'000 + number * number * 1000;
        const auto id = static_cast<std::uint32_t>(0x00010000 + number % 11);
        EXPECT_TRUE(file.Append(number, id, object, time, arguments));
        records.push_back(
            {number, time, id, object.TraceName(), std::string(arguments.begin(), arguments.end())});
        blocks.insert(file.BlockOf(number)->first);
    }
    const std::uint64_t secondBlock = *std::next(blocks.begin());
    const std::uint64_t thirdBlock = *std::next(blocks.begin(), 2);
    file.Mark(0, 8);
    file.Mark(thirdBlock, thirdBlock + 1);
    std::erase_if(records, [&](const CDecodedRecord& record) {
        return (record.number >= secondBlock && record.number < thirdBlock) ||
               record.number >= *blocks.rbegin();
    });
    return file;
}

std::string AsString(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

std::vector<CDecodedRecord> Records(const CTraceFileContent& content) {
    std::vector<CDecodedRecord> records;
    for (const CTraceFileRecord& record : content.records)
        records.push_back({record.number, record.time, record.id, record.object, AsString(record.arguments)});
    return records;
}

TEST(TraceFile, IsWrittenWithTheWholeBuffersThatWereMarked) {
    const CNamed first("HTTP Server");
    const CNamed second(std::string(300, 'n'));
    std::vector<CDecodedRecord> records;
    CTraceFile file = MakeFile(first, second, records);
    EXPECT_TRUE(file.IsChanged());
    for (CDecodedRecord& record : records)
        record.object.resize(std::min<std::size_t>(record.object.size(), 255));
    const Bytes bytes = WriteTraceFile(file.MarkedImage());
    const CDecodedFile decoded = DecodeTraceFile(AsString(bytes));
    EXPECT_THAT(decoded.strings,
                testing::ElementsAre("HTTP Server", std::string(255, 'n'), "ServiceName::QBHTTPService"));
    EXPECT_EQ(decoded.blocks.size(), 2U);
    EXPECT_EQ(decoded.records, records);

    const CTraceFileContent content = ReadTraceFile(bytes);
    EXPECT_FALSE(content.damage.has_value());
    EXPECT_EQ(content.headers, (std::map<std::string, std::string>{{"ServiceName", "QBHTTPService"}}));
    EXPECT_EQ(Records(content), records);
}

/// A short file of two blocks with ten records each.
Bytes ShortFile() {
    CTraceFileImage image{{"HTTP Server"}, {{"ServiceName", "QBHTTPService"}}, {}};
    for (const std::uint64_t first : {5, 15}) {
        CTraceBuffer buffer;
        for (std::uint64_t i = 0; i < 10; ++i)
            EXPECT_TRUE(buffer.Append(0x00010000, 0, first + i, Bytes{1, 0, 2, 'a', 'b'}));
        image.blocks.push_back({first, buffer.Image()});
    }
    return WriteTraceFile(image);
}

TEST(TraceFile, IsReadAsFarAsItMakesSenseWhenItWasCut) {
    const Bytes whole = ShortFile();
    const auto records = Records(ReadTraceFile(whole));
    ASSERT_EQ(records.size(), 20U);
    std::set<std::size_t> counts;
    std::size_t undamaged = 0;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const CTraceFileContent content = ReadTraceFile(std::span(whole).first(length));
        const auto found = Records(content);
        ASSERT_LE(found.size(), records.size());
        ASSERT_TRUE(std::equal(found.begin(), found.end(), records.begin())) << length;
        undamaged += content.damage ? 0 : 1;
        ASSERT_LE(content.damage ? content.damage->offset : 0, length);
        counts.insert(found.size());
    }
    EXPECT_EQ(counts, (std::set<std::size_t>{0, 10}));
    EXPECT_EQ(undamaged, 2U);  // between the parts nothing tells that there was more
}

TEST(TraceFile, IsReadWithoutHarmWhateverBitWasFlipped) {
    const Bytes whole = ShortFile();
    std::size_t damaged = 0;
    for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
        Bytes flipped = whole;
        flipped[bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
        const CTraceFileContent content = ReadTraceFile(flipped);
        damaged += content.damage ? 1 : 0;
        for (const CTraceFileRecord& record : content.records)
            std::ignore = DecodeArguments(record.arguments);
    }
    EXPECT_GT(damaged, whole.size());
}

}  // namespace
}  // namespace quorbel
