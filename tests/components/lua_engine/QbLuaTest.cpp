#include <cmath>

#include "data/scripting/Engine.h"
#include "data/scripting/Exception.h"
#include "platform/Text.h"
#include "platform/com/Stream.h"

namespace quorbel::LibScripting {
namespace {

/// A blob, read in pieces that are full but for the last.
class CBytes final : public CComObject<ISequentialStream> {
 public:
    explicit CBytes(std::string bytes) : m_bytes(std::move(bytes)) {}
    HRESULT Read(void* buffer, std::uint32_t size, std::uint32_t* read) override {
        *read = static_cast<std::uint32_t>(m_bytes.copy(static_cast<char*>(buffer), size, m_position));
        m_position += *read;
        return *read == size ? S_OK : S_FALSE;
    }
    HRESULT Write(const void*, std::uint32_t, std::uint32_t*) override { return E_NOTIMPL; }

 private:
    const std::string m_bytes;
    std::size_t m_position = 0;
};

CVariant Blob(std::string bytes) {
    return CVariant::FromUnknown(CComPtr<IUnknown>(new CBytes(std::move(bytes))));
}

CVariant Call(const CVariant& script, PositionalArguments positional = {}, NamedArguments named = {}) {
    CVariant result;
    CVariant resource = script;
    FindEngine(L"QbLua.so").Value()->Execute(result, resource, L"f", named, positional);
    return result;
}

TEST(QbLua, TurnsValuesIntoThoseOfLuaAndBack) {
    const std::tuple<CVariant, std::string_view, CVariant> cases[] = {
        {CVariant(), "nil", CVariant::Null()},
        {CVariant::Null(), "nil", CVariant::Null()},
        {CVariant::FromI2(-2), "integer", CVariant::FromI8(-2)},
        {CVariant::FromI4(-4), "integer", CVariant::FromI8(-4)},
        {CVariant::FromI8(INT64_MIN), "integer", CVariant::FromI8(INT64_MIN)},
        {CVariant::FromR4(0.5F), "float", CVariant::FromR8(0.5)},
        {CVariant::FromR8(-1e300), "float", CVariant::FromR8(-1e300)},
        {CVariant::FromBool(true), "boolean", CVariant::FromBool(true)},
        {CVariant::FromBool(false), "boolean", CVariant::FromBool(false)},
        {CVariant(L"\u00E4\U0001F600"), "string", CVariant(L"\u00E4\U0001F600")},
        {CVariant(std::wstring_view(L"a\0b", 3)), "string", CVariant(std::wstring_view(L"a\0b", 3))},
        {Blob("\xC3\xA4 \xFF"), "string", CVariant(L"\u00E4 \uFFFD")},
        {Blob(std::string(40000, 'x')), "string", CVariant(std::wstring(40000, L'x'))},
        {Blob(std::string(16384, 'x')), "string", CVariant(std::wstring(16384, L'x'))},
    };
    for (const auto& [given, type, returned] : cases) {
        const auto script = L"function f(x) if (math.type(x) or type(x)) == '" + FromUtf8(type) +
                            L"' then return x end error(type(x)) end";
        const CVariant result = Call(CVariant(script), {given});
        EXPECT_EQ(result.vt, returned.vt) << type;
        EXPECT_EQ(result.Text(), returned.Text()) << type;
        if (returned.vt == VT_BSTR) continue;
        EXPECT_EQ(result.llVal, returned.llVal) << type;
    }
}

TEST(QbLua, PassesArgumentsByPositionAndByName) {
    const CVariant script(L"function f(a, b, named) return a .. b .. named.size end");
    EXPECT_EQ(Call(script, {CVariant::FromI4(1), CVariant(L"x")}, {{L"size", CVariant::FromI4(3)}}).Text(),
              L"1x3");
}

TEST(QbLua, ThrowsWhatWentWrong) {
    const std::tuple<CVariant, CVariant, HRESULT, std::string_view> cases[] = {
        {CVariant(L"\nfunction f() error('no') end"), CVariant(), E_FAIL, "script:2: no"},
        {CVariant(), CVariant(), E_FAIL, "script: no function 'f'"},
        {CVariant::Null(), CVariant(), E_FAIL, "The value cannot be turned into a text"},
        {Blob("function f() end"), CVariant(), E_FAIL, "The value cannot be turned into a text"},
        {CVariant(L"function f() end"), CVariant::FromError(E_FAIL), E_FAIL,
         "script: an argument of no type of Lua"},
    };
    for (const auto& [script, argument, result, message] : cases) {
        try {
            Call(script, {argument});
            ADD_FAILURE() << "nothing was thrown: " << message;
        } catch (const exception& thrown) {
            EXPECT_EQ(thrown.Result(), result) << message;
            EXPECT_EQ(thrown.what(), message);
        }
    }
}

}  // namespace
}  // namespace quorbel::LibScripting
