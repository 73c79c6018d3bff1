#include "data/scripting/DataAccessor.h"
#include "platform/Text.h"

namespace quorbel {
namespace {

constexpr const wchar_t* kActorEngine = L"" QUORBEL_LIBRARIES "/TestEngine.so";
constexpr const wchar_t* kNoEngine = L"" QUORBEL_LIBRARIES "/NoEngine.so";
constexpr auto kLoadFailed = static_cast<HRESULT>(0x8007007E);
constexpr auto kNoEntry = static_cast<HRESULT>(0x8007007F);

/// A command that calls whoever is advised, as a provider does. Refuses a second one.
class CCallingCommand final : public CComObject<ICommand, IConnectionPointContainer, IConnectionPoint> {
 public:
    HRESULT Cancel() override { return E_NOTIMPL; }
    HRESULT Execute(IUnknown*, const GUID&, DBPARAMS*, std::int64_t*, IUnknown**) override {
        return E_NOTIMPL;
    }
    HRESULT FindConnectionPoint(const GUID& id, IConnectionPoint** point) override {
        if (id != IDispatch::kId) return CONNECT_E_NOCONNECTION;
        *point = CComPtr<IConnectionPoint>(this).Detach();
        return S_OK;
    }
    HRESULT Advise(IUnknown* sink, std::uint32_t* cookie) override {
        if (m_sink) return CONNECT_E_ADVISELIMIT;
        *cookie = kCookie;
        return sink->QueryInterface(IDispatch::kId, m_sink.ReceiveVoid());
    }
    HRESULT Unadvise(std::uint32_t cookie) override {
        EXPECT_EQ(cookie, kCookie);
        m_sink = nullptr;
        return S_OK;
    }
    IDispatch* Sink() const { return m_sink.Get(); }

 private:
    static constexpr std::uint32_t kCookie = 7;
    CComPtr<IDispatch> m_sink;
};

/// A data source's sink, with calls as a provider makes them.
class ActionEvents : public testing::Test {
 protected:
    ActionEvents() { Set(L"Actor", CVariant(kActorEngine)); }

    DISPID IdOf(const wchar_t* name, const GUID& id = IID_NULL) {
        DISPID number = 0;
        m_lastResult = m_sink->GetIDsOfNames(id, &name, 1, 0, &number);
        return number;
    }
    void Set(const wchar_t* name, CVariant value) {
        DISPPARAMS parameters{&value, nullptr, 1, 0};
        EXPECT_EQ(m_sink->Invoke(IdOf(name, kProperties), kProperties, 0, DISPATCH_PROPERTYPUT, &parameters,
                                 nullptr, nullptr, nullptr),
                  S_OK);
    }
    HRESULT Run(const wchar_t* name, std::vector<CVariant> lastFirst = {}, std::vector<DISPID> named = {}) {
        DISPPARAMS parameters{lastFirst.data(), named.data(), static_cast<std::uint32_t>(lastFirst.size()),
                              static_cast<std::uint32_t>(named.size())};
        return m_sink->Invoke(IdOf(name), IID_NULL, 0, DISPATCH_METHOD, &parameters, m_value.Receive(),
                              &m_exception, nullptr);
    }
    ~ActionEvents() override { ClearException(); }
    void ClearException() {
        SysFreeString(std::exchange(m_exception.bstrSource, nullptr));
        SysFreeString(std::exchange(m_exception.bstrDescription, nullptr));
    }

    static constexpr GUID kProperties = kScriptProperties;
    CComPtr<CDataAccessor::CActionEventHandler> m_sink{
        new CDataAccessor::CActionEventHandler(std::make_shared<CActionEventInvoker>())};
    HRESULT m_lastResult = S_OK;
    CVariant m_value;
    EXCEPINFO m_exception;
};

TEST_F(ActionEvents, NumberNamesInTheOrderInWhichTheyCome) {
    const wchar_t* names[] = {L"one", L"two", L"One", L"one"};
    std::array<DISPID, 4> ids{};
    EXPECT_EQ(m_sink->GetIDsOfNames(IID_NULL, names, 4, 0, ids.data()), S_OK);
    EXPECT_THAT(ids, testing::ElementsAre(1, 2, 3, 1));
    EXPECT_EQ(IdOf(L"two"), 2);
    EXPECT_EQ(IdOf(L"four"), 4);
}

TEST_F(ActionEvents, KnowTwoPropertiesAndNoOtherInterface) {
    const std::tuple<const wchar_t*, DISPID, HRESULT> cases[] = {
        {L"Actor", 0, S_OK},
        {L"Resource", 1, S_OK},
        {L"actor", DISPID_UNKNOWN, DISP_E_UNKNOWNNAME},
        {L"", DISPID_UNKNOWN, DISP_E_UNKNOWNNAME},
    };
    for (const auto& [name, id, result] : cases) {
        EXPECT_EQ(IdOf(name, kProperties), id) << ToUtf8(name);
        EXPECT_EQ(m_lastResult, result) << ToUtf8(name);
    }
    CVariant value(L"x");
    DISPPARAMS parameters{&value, nullptr, 1, 0};
    const auto invoke = [&](DISPID id, const GUID& interfaceId) {
        return m_sink->Invoke(id, interfaceId, 0, 0, &parameters, m_value.Receive(), nullptr, nullptr);
    };
    EXPECT_EQ(invoke(2, kProperties), DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(invoke(5, IID_NULL), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(invoke(0, IDispatch::kId), E_NOINTERFACE);
    IdOf(L"Actor", IDispatch::kId);
    EXPECT_EQ(m_lastResult, E_NOINTERFACE);
}

TEST_F(ActionEvents, AnswerToIUnknownAndIDispatchOnly) {
    CComPtr<IUnknown> unknown;
    CComPtr<IDispatch> dispatch;
    CComPtr<ICommand> command;
    EXPECT_EQ(m_sink.QueryInterface(unknown), S_OK);
    EXPECT_EQ(m_sink.QueryInterface(dispatch), S_OK);
    EXPECT_EQ(m_sink.QueryInterface(command), E_NOINTERFACE);
    EXPECT_EQ(dispatch->GetTypeInfoCount(nullptr), E_NOTIMPL);
    EXPECT_EQ(dispatch->GetTypeInfo(0, 0, nullptr), E_NOTIMPL);
}

TEST_F(ActionEvents, HandAnActionItsResourceAndItsArguments) {
    Set(L"Resource", CVariant(L"the resource"));
    const DISPID size = IdOf(L"size");
    const DISPID colour = IdOf(L"colour");
    const auto number = [](int value) { return CVariant::FromI4(value); };
    const std::tuple<std::vector<CVariant>, std::vector<DISPID>, std::wstring_view> cases[] = {
        {{}, {}, L"show(the resource)"},
        {{number(3), number(2), number(1)}, {}, L"show(the resource) 1 2 3"},
        {{number(9), CVariant(L"red"), number(2), number(1)},
         {size, colour},
         L"show(the resource) 1 2 colour=red size=9"},
        {{number(1), number(2)}, {size, size}, L"show(the resource) size=1"},
    };
    for (const auto& [arguments, named, shown] : cases) {
        EXPECT_EQ(Run(L"show", arguments, named), S_OK);
        EXPECT_EQ(m_value.Text(), shown);
    }
    EXPECT_EQ(Run(L"again"), S_OK);
    EXPECT_EQ(m_value.Text(), L"inner(the resource)") << "through the engine that it was given";
    EXPECT_EQ(Run(L"show", {number(1)}, {99}), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(Run(L"show", {number(1)}, {size, colour}), E_INVALIDARG);
}

TEST_F(ActionEvents, TellHowAnActionFailed) {
    const std::tuple<const wchar_t*, std::wstring_view, HRESULT> cases[] = {
        {L"throw scripting", L"no such th\u00EFng", DISP_E_BADINDEX},
        {L"throw standard", L"out of r\u00E4nge", E_FAIL},
        {L"throw number", L"Unknown exception occurred", E_UNEXPECTED},
    };
    for (const auto& [name, description, result] : cases) {
        EXPECT_EQ(Run(name), DISP_E_EXCEPTION);
        EXPECT_EQ(ToView(m_exception.bstrSource), name);
        EXPECT_EQ(ToView(m_exception.bstrDescription), description);
        EXPECT_EQ(m_exception.scode, result);
        ClearException();
        EXPECT_EQ(m_sink->Invoke(IdOf(name), IID_NULL, 0, 0, nullptr, nullptr, nullptr, nullptr),
                  DISP_E_EXCEPTION)
            << "also to a caller who does not want to know more";
    }
    EXPECT_EQ(Run(L"report"), DISP_E_OVERFLOW);
    EXPECT_EQ(m_exception.bstrSource, nullptr);
}

TEST_F(ActionEvents, ReturnAValueToWhoeverHasAPlaceForIt) {
    EXPECT_EQ(Run(L"nothing"), S_OK);
    EXPECT_EQ(m_value.vt, VT_EMPTY);
    EXPECT_EQ(m_sink->Invoke(IdOf(L"nothing"), IID_NULL, 0, 0, nullptr, nullptr, nullptr, nullptr),
              E_POINTER);
}

TEST_F(ActionEvents, ReportALibraryThatCannotDoIt) {
    const std::pair<CVariant, HRESULT> cases[] = {
        {CVariant(kNoEngine), kNoEntry},
        {CVariant(L"no-such-engine.so"), kLoadFailed},
        {CVariant(), kLoadFailed},
        {CVariant::FromI4(5), kLoadFailed},
        {CVariant::Null(), DISP_E_TYPEMISMATCH},
        {CVariant::FromUnknown(CComPtr<IUnknown>(m_sink.Get())), DISP_E_TYPEMISMATCH},
    };
    for (const auto& [actor, result] : cases) {
        Set(L"Actor", actor);
        EXPECT_EQ(Run(L"show"), result);
    }
    Set(L"Actor", CVariant(kActorEngine));
    EXPECT_EQ(Run(L"show"), S_OK);
}

TEST_F(ActionEvents, ComeFromTheCommandAdvisedLastUntilItIsUnadvised) {
    const CComPtr<CCallingCommand> first(new CCallingCommand);
    const CComPtr<CCallingCommand> second(new CCallingCommand);
    EXPECT_EQ(m_sink->Advise(*first.Get()), S_OK);
    EXPECT_EQ(first->Sink(), m_sink.Get());
    EXPECT_EQ(m_sink->Advise(*second.Get()), S_OK);
    EXPECT_EQ(first->Sink(), nullptr);
    EXPECT_EQ(second->Sink(), m_sink.Get());
    const auto other =
        CComPtr(new CDataAccessor::CActionEventHandler(std::make_shared<CActionEventInvoker>()));
    EXPECT_EQ(other->Advise(*second.Get()), CONNECT_E_ADVISELIMIT);
    other->Unadvise();
    EXPECT_EQ(second->Sink(), m_sink.Get()) << "who was refused takes nobody's place away";
    m_sink->Unadvise();
    EXPECT_EQ(second->Sink(), nullptr);
    EXPECT_EQ(m_sink->AddRef(), 2U) << "and nobody holds the sink";
    m_sink->Release();
}

TEST_F(ActionEvents, AreIndependentFromOneDataSourceToTheNext) {
    const auto other =
        CComPtr(new CDataAccessor::CActionEventHandler(std::make_shared<CActionEventInvoker>()));
    EXPECT_EQ(IdOf(L"one"), 1);
    EXPECT_EQ(IdOf(L"two"), 2);
    const wchar_t* name = L"two";
    DISPID id = 0;
    EXPECT_EQ(other->GetIDsOfNames(IID_NULL, &name, 1, 0, &id), S_OK);
    EXPECT_EQ(id, 1);
    CVariant value;
    EXPECT_EQ(other->Invoke(id, IID_NULL, 0, 0, nullptr, value.Receive(), nullptr, nullptr), kLoadFailed)
        << "nobody has set its library";
}

}  // namespace
}  // namespace quorbel
