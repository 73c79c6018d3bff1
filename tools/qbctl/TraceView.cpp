#include "tools/qbctl/TraceView.h"

#include <ctime>
#include <nlohmann/json.hpp>

#include "platform/Clock.h"
#include "platform/Program.h"
#include "platform/Text.h"
#include "platform/eventlog/EventJson.h"

namespace quorbel {

namespace {

using Json = nlohmann::ordered_json;

EventSeverity SeverityOf(const CTraceFileRecord& record) {
    return static_cast<EventSeverity>(record.id >> 30);
}

/// Local time to the millisecond.
std::wstring LocalTimeText(std::uint64_t time) {
    const CUnixTime unixTime = ToUnixTime(time);
    const auto seconds = static_cast<std::time_t>(unixTime.seconds);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    std::array<char, 8> fraction{};
    std::snprintf(fraction.data(), fraction.size(), ".%03u", unixTime.fraction / 10'000 % 1000);
    return FromUtf8(std::string_view(text.data(), length)) + FromUtf8(fraction.data());
}

/// 8-bit characters are code points; a value that JSON has no number for is null.
Json ToJson(const TraceValue& value) {
    if (const auto* number = std::get_if<std::int64_t>(&value)) return *number;
    if (const auto* number = std::get_if<std::uint64_t>(&value)) return *number;
    if (const auto* number = std::get_if<double>(&value)) return *number;
    if (const auto* text = std::get_if<std::u16string>(&value)) return ToUtf8(FromUtf16(*text));
    if (const auto* text = std::get_if<std::string>(&value)) {
        std::wstring characters;
        for (const char byte : *text) characters += static_cast<wchar_t>(static_cast<unsigned char>(byte));
        return ToUtf8(characters);
    }
    return nullptr;
}

}  // namespace

CResult<CTraceView> CTraceView::FromArguments(const CArguments& arguments) {
    CTraceView view;
    view.m_form = arguments.Has(L"--json") ? TraceForm::Json : TraceForm::Text;
    view.m_texts = std::make_shared<const CTraceTexts>();
    const std::wstring* const named = arguments.Value(L"--messages");
    const auto program = ProgramPath();
    if (!program.IsOk()) return program.Error();
    const auto module = CMessageModule::Load(named ? std::filesystem::path(ToUtf8(*named))
                                                   : program.Value().parent_path() / "TrcQBHTTPService.dll");
    if (module.IsOk()) {
        view.m_texts = std::make_shared<const CTraceTexts>(*module.Value());
    } else if (named) {
        return module.Error();
    } else {
        Fail(L"The trace message module cannot be read, so that there are no texts", module.Error());
    }
    return view;
}

void CTraceView::Show(const CTraceFileRecord& record) const {
    switch (m_form) {
        case TraceForm::Text: return ShowText(record);
        case TraceForm::Json: return ShowJson(record);
    }
}

void CTraceView::ShowText(const CTraceFileRecord& record) const {
    PrintLine(LocalTimeText(record.time) + L"  " + FromUtf8(SeverityName(SeverityOf(record))) + L"  " +
              FromUtf8(record.object) + L": " + m_texts->Line(record.id, record.arguments));
}

void CTraceView::ShowJson(const CTraceFileRecord& record) const {
    const auto values = DecodeArguments(record.arguments);
    Json object;
    object["number"] = record.number;
    object["time"] = TimeText(record.time);
    object["object"] = ToUtf8(FromUtf8(record.object));
    object["id"] = IdText(record.id);
    object["severity"] = SeverityName(SeverityOf(record));
    object["text"] = ToUtf8(m_texts->Find(record.id).Render(values.value_or(std::vector<TraceValue>())));
    object["args"] = nullptr;
    if (values) {
        object["args"] = Json::array();
        for (const TraceValue& value : *values) object["args"].push_back(ToJson(value));
    }
    PrintData(object.dump(-1, ' ', false, Json::error_handler_t::replace));
}

}  // namespace quorbel
