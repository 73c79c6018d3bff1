#include "LibService/Status.h"

#include "LibService/EventLog.h"
#include "LibService/MessageIds.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

/// The text of a number or message that has none of its own.
std::wstring NumberText(std::uint32_t number) {
    return L"Error message " + std::to_wstring(static_cast<std::int32_t>(number));
}

std::wstring HexText(HRESULT result) {
    return L"0x" + ToHex(static_cast<std::uint32_t>(result), 8);
}

void RemoveLineEnds(std::wstring& text) {
    std::erase_if(text, [](wchar_t character) { return character == L'\r' || character == L'\n'; });
}

CStatus Raise(const std::source_location& where, std::uint32_t messageId, std::vector<std::wstring> inserts) {
    const auto module = CEventLog::Instance().Module();
    inserts.resize(module ? module->InsertCount(messageId) : 0);
    return {std::make_shared<CErrorMessage>(where, messageId, std::move(inserts))};
}

}  // namespace

HRESULT CError::GetHRESULT() const {
    return HResultFromWin32(GetCode());
}

CErrorNumber::CErrorNumber(const std::source_location& where, ErrorCode number, std::wstring extra,
                           std::uint32_t messageId)
    : CError(where), m_messageId(messageId), m_number(ToNumber(number)), m_extra(std::move(extra)) {}

std::wstring CErrorNumber::GetInsert(std::size_t index) const {
    if (index == 0) return std::to_wstring(static_cast<std::int32_t>(m_number));
    return index == 1 ? GetText() : m_extra;
}

std::wstring CErrorNumber::GetText() const {
    return SystemMessage(m_number).value_or(NumberText(m_number));
}

std::uint32_t CErrorHRESULT::GetMessageId() const {
    return message::kSystemError;
}

std::wstring CErrorHRESULT::GetInsert(std::size_t index) const {
    return index == 0 ? HexText(m_result) : GetText();
}

std::wstring CErrorHRESULT::GetText() const {
    if (std::wstring text = HResultMessage(m_result); !text.empty()) return text;
    return L"HRESULT " + HexText(m_result) + L".";
}

std::wstring CErrorMessage::GetText() const {
    const auto module = CEventLog::Instance().Module();
    auto text = module ? module->Format(m_messageId, m_inserts) : std::nullopt;
    return text ? std::move(*text) : NumberText(m_messageId);
}

void CStatus::Report() const {
    if (m_error) CEventLog::Instance().Report(*m_error);
}

std::wstring CStatus::Text() const {
    return m_error ? TrimInsert(m_error->GetText()) : std::wstring();
}

CStatus SystemError(ErrorCode number, std::source_location where) {
    return {std::make_shared<CErrorNumber>(where, number, std::wstring(), message::kSystemError)};
}

CStatus SystemError(ErrorCode number, std::wstring extra, std::source_location where) {
    return {std::make_shared<CErrorNumber>(where, number, std::move(extra), message::kSystemErrorWithText)};
}

CStatus HResultError(HRESULT result, std::source_location where) {
    return {std::make_shared<CErrorHRESULT>(where, result)};
}

CStatus MessageError(std::uint32_t messageId, std::initializer_list<std::wstring_view> inserts,
                     std::source_location where) {
    return Raise(where, messageId, {inserts.begin(), inserts.end()});
}

CStatus MessageError(std::uint32_t messageId, const std::exception& exception, std::source_location where) {
    return {std::make_shared<CErrorMessage>(where, messageId,
                                            std::vector<std::wstring>{FromUtf8(exception.what())})};
}

CStatus AllocationError(std::size_t bytes, std::source_location where) {
    return Raise(where, message::kAllocationFailed, {std::to_wstring(bytes)});
}

std::wstring TrimInsert(std::wstring text) {
    RemoveLineEnds(text);
    if (!text.empty() && text.back() == L'.') text.pop_back();
    return text;
}

}  // namespace quorbel
