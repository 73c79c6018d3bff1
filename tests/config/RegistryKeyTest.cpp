#include "config/RegistryKey.h"
#include "platform/Text.h"
#include "tests/config/ConfigurationFixture.h"

namespace quorbel {
namespace {

using RegistryKeyTest = ConfigurationTest;

/// Collects what an enumeration delivers, as texts that say which callback it came through.
struct CCollector {
    std::vector<std::wstring> found;
    std::size_t failAfter = std::size_t(-1);

    CStatus Take(const std::wstring& entry) {
        if (found.size() == failAfter) return SystemError(ErrorCode::Cancelled);
        found.push_back(entry);
        return {};
    }
    auto Text() {
        return [this](const std::wstring& name, const auto& text) {
            return Take(L"text " + name + L"=" + text);
        };
    }
    auto Number(const std::wstring& bits) {
        return [this, bits](const std::wstring& name, auto number) {
            return Take(bits + L" " + name + L"=" + std::to_wstring(number));
        };
    }
    auto Subkey() {
        return [this](const std::wstring& name) { return Take(name); };
    }
};

TEST_F(RegistryKeyTest, DeliversTextsAndNumbersAndSkipsAllElse) {
    ASSERT_EQ(::setenv("QUORBEL_TEST_VALUE", "expanded", 1), 0);
    ASSERT_EQ(::unsetenv("QUORBEL_TEST_NONE"), 0);
    using namespace std::literals;
    const std::pair<const wchar_t*, CValue> values[] = {
        {L"", CValue::FromText(L"default")},
        {L"bare", {ValueType::Text, ""}},
        {L"byte", {ValueType::Text, "A"}},
        {L"cut", {ValueType::Text, "A\0B\0"s}},
        {L"empty", CValue::FromText(L"")},
        {L"expand", CValue::FromText(L"a%QUORBEL_TEST_VALUE%%QUORBEL_TEST_NONE%", ValueType::ExpandableText)},
        {L"expandnothing", CValue::FromText(L"", ValueType::ExpandableText)},
        {L"long", CValue::FromNumber64(0xFFFFFFFFFFFFFFFF)},
        {L"number", CValue::FromNumber32(0xFFFFFFFF)},
        {L"unexpanded", CValue::FromText(L"%QUORBEL_TEST_VALUE%")},
        {L"x-big", {ValueType::Number32BigEndian, "\0\0\0\1"s}},
        {L"x-binary", {ValueType::Binary, "binary"}},
        {L"x-link", {ValueType::Link, "l\0\0\0"s}},
        {L"x-multi", CValue::FromTexts({L"one", L"two"})},
        {L"x-none", {ValueType::None, "text"}},
        {L"x-short", {ValueType::Number32, "\1\0"s}},
        {L"x-short64", {ValueType::Number64, "\1\0\0\0"s}},
        {L"x-unknown", {static_cast<ValueType>(4711), "text"}},
    };
    for (const auto& [name, value] : values) Set(L"Key", name, value);
    const CRegistryKey key = OpenForReading(L"Key");
    CCollector collector;
    EXPECT_TRUE(
        key.EnumerateValues(collector.Text(), collector.Number(L"32"), collector.Number(L"64")).IsOk());
    EXPECT_THAT(collector.found,
                testing::ElementsAre(L"text =default", L"text bare=", L"text byte=", L"text cut=A",
                                     L"text empty=", L"text expand=aexpanded%QUORBEL_TEST_NONE%",
                                     L"text expandnothing=", L"64 long=18446744073709551615",
                                     L"32 number=4294967295", L"text unexpanded=%QUORBEL_TEST_VALUE%"));

    CCollector texts;
    EXPECT_TRUE(key.EnumerateValues(texts.Text(), nullptr, nullptr).IsOk());
    EXPECT_EQ(texts.found.size(), 8U);
    CCollector numbers;
    EXPECT_TRUE(key.EnumerateValues(nullptr, numbers.Number(L"32"), numbers.Number(L"64")).IsOk());
    EXPECT_EQ(numbers.found.size(), 2U);
    EXPECT_TRUE(key.EnumerateValues(nullptr, nullptr, nullptr).IsOk());
}

TEST_F(RegistryKeyTest, EndsAnEnumerationAtACallbacksFailure) {
    for (const wchar_t* name : {L"a", L"b", L"c"}) {
        Set(L"Key", name, L"text");
        Create(L"Key\\" + std::wstring(name));
    }
    const CRegistryKey key = OpenForReading(L"Key");
    for (std::size_t failAfter = 0; failAfter < 3; ++failAfter) {
        CCollector values{{}, failAfter};
        const CStatus status = key.EnumerateValues(values.Text(), nullptr, nullptr);
        ASSERT_FALSE(status.IsOk());
        EXPECT_EQ(status.Error()->GetCode(), ToNumber(ErrorCode::Cancelled));
        EXPECT_EQ(values.found.size(), failAfter);
        CCollector subkeys{{}, failAfter};
        EXPECT_FALSE(key.EnumerateSubkeys(subkeys.Subkey()).IsOk());
        EXPECT_EQ(subkeys.found.size(), failAfter);
    }
}

TEST_F(RegistryKeyTest, EnumeratesSubkeysOpenForReading) {
    for (const wchar_t* name : {L"Beta", L"alpha", L"\u00c4"})
        Set(L"Key\\" + std::wstring(name), L"name", name);
    const CRegistryKey key = OpenForReading(L"Key");
    CCollector names;
    EXPECT_TRUE(key.EnumerateSubkeys(names.Subkey()).IsOk());
    EXPECT_THAT(names.found, testing::ElementsAre(L"alpha", L"Beta", L"\u00c4"));

    CCollector opened;
    EXPECT_TRUE(key.EnumerateKeys([&](const std::wstring& name, const CRegistryKey& subkey) {
                       EXPECT_EQ(subkey.QueryValue(L"name").Value().AsText(), name);
                       EXPECT_EQ(subkey.Store().Set(L"name", {}), ErrorCode::AccessDenied);
                       return opened.Take(name);
                   })
                    .IsOk());
    EXPECT_EQ(opened.found, names.found);
}

TEST_F(RegistryKeyTest, NamesTheStoreModuleAsTheSourceOfItsFailures) {
    Create(L"Key\\Subkey");
    const CRegistryKey key = OpenForReading(L"Key");
    CCollector collector;
    std::set<std::uint32_t> lines;
    const std::pair<RegistryOperation, std::function<CStatus()>> cases[] = {
        {RegistryOperation::Values, [&] { return key.EnumerateValues(collector.Text(), nullptr, nullptr); }},
        {RegistryOperation::Subkeys, [&] { return key.EnumerateSubkeys(collector.Subkey()); }},
        {RegistryOperation::Open,
         [&] { return key.EnumerateKeys([](const auto&, const auto&) { return CStatus(); }); }},
    };
    for (const auto& [operation, enumerate] : cases) {
        registry.Faults().Fail(operation, ErrorCode::RegistryIoFailed);
        const CStatus status = enumerate();
        ASSERT_FALSE(status.IsOk());
        EXPECT_EQ(status.Error()->GetCode(), ToNumber(ErrorCode::RegistryIoFailed));
        EXPECT_TRUE(status.Error()->SourceFile().ends_with("RegistryKey.cpp"));
        EXPECT_TRUE(lines.insert(status.Error()->SourceLine()).second) << "each failure has its own place";
        EXPECT_TRUE(enumerate().IsOk());
    }
}

TEST_F(RegistryKeyTest, OpensCreatesAndCopiesKeys) {
    EXPECT_FALSE(CRegistryKey().IsOpen());
    EXPECT_EQ(root.OpenKey(L"Key", KeyAccess::Read).Error(), ErrorCode::FileNotFound);
    auto created = root.CreateKey(L"Key\\");
    ASSERT_TRUE(created.IsOk());
    CRegistryKey key = std::move(created).Value();
    EXPECT_TRUE(key.IsOpen());
    EXPECT_EQ(key.Store().Set(L"name", CValue::FromText(L"text")), ErrorCode::Success);

    auto copied = key.DuplicateKey();
    ASSERT_TRUE(copied.IsOk());
    const CRegistryKey copy = std::move(copied).Value();
    key = CRegistryKey();
    EXPECT_FALSE(key.IsOpen());
    EXPECT_EQ(copy.QueryValue(L"NAME").Value().AsText(), L"text") << "a copy outlives the original";
    EXPECT_EQ(copy.QueryValue(L"other").Error(), ErrorCode::FileNotFound);
    EXPECT_EQ(OpenForReading(L"Key").CreateKey(L"Subkey").Error(), ErrorCode::AccessDenied);
}

TEST_F(RegistryKeyTest, TellsOnceOfTheChangesItWasAskedFor) {
    CRegistryKey key = root.CreateKey(L"Key").Value();
    const auto event = CEvent::Create(EventReset::Auto).Value();
    ASSERT_EQ(key.WatchKey(WatchScope::Key, WatchFilter::Values, event), ErrorCode::Success);
    Set(L"Key", L"name", L"text");
    EXPECT_TRUE(WaitForAny({event.get()}, std::chrono::seconds(30)).IsOk());
    registry.Faults().Fail(RegistryOperation::Watch, ErrorCode::NoSystemResources);
    EXPECT_EQ(key.WatchKey(WatchScope::Key, WatchFilter::Values, event), ErrorCode::NoSystemResources);
}

}  // namespace
}  // namespace quorbel
