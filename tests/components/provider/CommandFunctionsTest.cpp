#include "components/provider/CommandFunctions.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"

namespace quorbel {
namespace {

/// A consumer's sink that writes down its calls and answers as the test wants.
class CFakeSink final : public CComObject<IDispatch> {
 public:
    HRESULT GetTypeInfoCount(std::uint32_t*) override { return E_NOTIMPL; }
    HRESULT GetTypeInfo(std::uint32_t, std::uint32_t, IUnknown**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(const GUID& interfaceId, const wchar_t* const* names, std::uint32_t count,
                          std::uint32_t, DISPID* ids) override {
        EXPECT_EQ(count, 1U);
        if (interfaceId == IID_NULL) {
            calls.push_back(L"name " + std::wstring(names[0]));
            ids[0] = 17;
            return S_OK;
        }
        EXPECT_EQ(interfaceId, kScriptProperties);
        ids[0] = std::wstring_view(names[0]) == L"Actor" ? 0 : 1;
        return S_OK;
    }
    HRESULT Invoke(DISPID id, const GUID& interfaceId, std::uint32_t, std::uint16_t flags,
                   DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* exception, std::uint32_t*) override {
        const bool isProperty = interfaceId == kScriptProperties;
        EXPECT_EQ(flags, isProperty ? DISPATCH_PROPERTYPUT : DISPATCH_METHOD);
        EXPECT_EQ(parameters->cNamedArgs, isProperty ? 1U : 0U);
        std::wstring call = (isProperty ? L"put " : L"call ") + std::to_wstring(id);
        for (std::uint32_t index = 0; index != parameters->cArgs; ++index) {
            CVariant text;
            EXPECT_EQ(VariantChangeType(text, parameters->rgvarg[index], VT_BSTR), S_OK);
            call += L" " + std::wstring(text.Text());
        }
        calls.push_back(call);
        if (answer == DISP_E_EXCEPTION) {
            exception->bstrSource = SysAllocString(L"action");
            exception->bstrDescription = SysAllocString(L"It threw.");
            exception->scode = code;
        }
        if (Succeeded(answer) && result) CVariant(L"done").Detach(*result);
        return answer;
    }

    std::vector<std::wstring> calls;
    HRESULT answer = S_OK;
    HRESULT code = E_UNEXPECTED;
};

class CommandFunctionsTest : public testing::Test {
 protected:
    CComPtr<CSinkPoint> point{new CSinkPoint};
    CComPtr<CFakeSink> sink{new CFakeSink};
    CCommandFunctions functions{point};
};

TEST_F(CommandFunctionsTest, CallsTheSinkAsItsInterfaceWants) {
    std::uint32_t cookie = 0;
    ASSERT_EQ(point->Advise(sink.Get(), &cookie), S_OK);
    EXPECT_EQ(functions.SetScriptLibrary(L"lib.so"), S_OK);
    EXPECT_EQ(functions.SetScriptResource(CVariant::FromI8(5)), S_OK);
    const std::vector<CVariant> arguments = {CVariant(L"first"), CVariant::FromI8(2)};
    CVariant result;
    EXPECT_EQ(functions.RunScriptAction(L"act", arguments, result), S_OK);
    EXPECT_EQ(result.Text(), L"done");
    EXPECT_EQ(functions.RunScriptAction(L"act", {}, result), S_OK);
    EXPECT_EQ(sink->calls, (std::vector<std::wstring>{L"put 0 lib.so", L"put 1 5", L"name act",
                                                      L"call 17 2 first", L"name act", L"call 17"}));
}

TEST_F(CommandFunctionsTest, TellsWhatTheSinkSaysOfAFailure) {
    std::uint32_t cookie = 0;
    ASSERT_EQ(point->Advise(sink.Get(), &cookie), S_OK);
    const std::tuple<HRESULT, HRESULT, HRESULT, std::wstring_view> cases[] = {
        {DISP_E_EXCEPTION, E_UNEXPECTED, E_UNEXPECTED, L"It threw."},
        {DISP_E_EXCEPTION, S_OK, DISP_E_EXCEPTION, L"It threw."},
        {HResultFromWin32(126), S_OK, HResultFromWin32(126), L"\"act\" failed with 0x8007007E. "},
    };
    for (const auto& [answer, code, result, description] : cases) {
        sink->answer = answer;
        sink->code = code;
        CVariant value;
        EXPECT_EQ(functions.RunScriptAction(L"act", {}, value), result);
        EXPECT_TRUE(TakeErrorInfo().starts_with(description));
        EXPECT_EQ(value.vt, VT_EMPTY);
    }
}

TEST_F(CommandFunctionsTest, FailsWhenNobodyTakesActions) {
    CVariant value;
    EXPECT_EQ(functions.RunScriptAction(L"act", {}, value), E_FAIL);
    EXPECT_EQ(functions.SetScriptLibrary(L"x"), E_FAIL);
    EXPECT_EQ(functions.SetScriptResource(value), E_FAIL);
}

TEST_F(CommandFunctionsTest, HoldsOneSinkAtATime) {
    std::uint32_t cookie = 0;
    std::uint32_t other = 0;
    EXPECT_EQ(point->Advise(sink.Get(), &cookie), S_OK);
    EXPECT_EQ(point->Advise(sink.Get(), &other), CONNECT_E_ADVISELIMIT);
    EXPECT_EQ(point->Unadvise(cookie + 1), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(point->Unadvise(cookie), S_OK);
    EXPECT_EQ(point->Unadvise(cookie), CONNECT_E_NOCONNECTION);
    EXPECT_FALSE(point->Sink());
    EXPECT_EQ(point->Advise(sink.Get(), &other), S_OK);
    EXPECT_NE(cookie, other);
    EXPECT_EQ(point->Advise(point.Get(), &other), E_NOINTERFACE);
}

TEST_F(CommandFunctionsTest, AddsHeadersThatACommandMaySet) {
    using namespace std::literals;
    for (const std::wstring_view field : {L"X-Test: a"sv, L"x:"sv, L"Set-Cookie:a=b; Path=/"sv, L"X : a"sv,
                                          L"X: \u00e4 \u4F60"sv, L"X:a:b"sv}) {
        EXPECT_EQ(functions.AddHeader(field), S_OK) << ToUtf8(field);
    }
    EXPECT_EQ(functions.Headers().size(), 6U);
    for (const std::wstring_view field : {L""sv,
                                          L"X"sv,
                                          L" X"sv,
                                          L": a"sv,
                                          L"X Y: a"sv,
                                          L"X\u00e4: a"sv,
                                          L"X(: a"sv,
                                          L"X: a\r\nY: b"sv,
                                          L"X: a\0"sv,
                                          L"X\n: a"sv,
                                          L"X: \x7F"sv,
                                          L"X: \x85"sv,
                                          L"X:\ta"sv,
                                          L"Content-Length: 5"sv,
                                          L"content-length : 5"sv,
                                          L"TRANSFER-ENCODING: chunked"sv,
                                          L"Connection: close"sv,
                                          L"Content-Type: text/html"sv,
                                          L"keep-alive: 5"sv,
                                          L"Trailer: X"sv,
                                          L"Upgrade: h2c"sv}) {
        EXPECT_EQ(functions.AddHeader(field), E_INVALIDARG) << ToUtf8(field);
        EXPECT_FALSE(TakeErrorInfo().empty());
    }
    EXPECT_EQ(functions.Headers().size(), 6U);
}

TEST_F(CommandFunctionsTest, AddsHeadersUpToTheirBoundTogether) {
    const std::wstring half = L"X: " + std::wstring(16 * 1024 - 2, L'\u00e4') + L"a";  // 32 KiB in UTF-8
    EXPECT_EQ(functions.AddHeader(half), S_OK);
    EXPECT_EQ(functions.AddHeader(half + L"b"), E_INVALIDARG);
    EXPECT_FALSE(TakeErrorInfo().empty());
    EXPECT_EQ(functions.AddHeader(half), S_OK);
    EXPECT_EQ(functions.AddHeader(L"X:"), E_INVALIDARG);
}

}  // namespace
}  // namespace quorbel
