#include "components/provider/SqliteFunctions.h"

#include <new>

#include "components/provider/SqliteValues.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/fault/Faults.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

/// Neither in views nor in triggers: what a file of the database says does not reach out of it.
constexpr int kActing = SQLITE_UTF8 | SQLITE_DIRECTONLY;
constexpr int kPure = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;

HRESULT Missing(std::wstring_view what) {
    SetErrorInfo(std::wstring(what) + L" is NULL.");
    return E_INVALIDARG;
}

}  // namespace

int CSqliteFunctions::Register(sqlite3* database) {
    for (const int result : {
             Register<&CSqliteFunctions::Provenance>(database, "http_provenance", 1, kActing),
             Register<&CSqliteFunctions::Header>(database, "http_header", 1, kActing),
             Register<&CSqliteFunctions::Decode>(database, "http_decode", 1, kPure),
             Register<&CSqliteFunctions::Library>(database, "script_library", 1, kActing),
             Register<&CSqliteFunctions::Resource>(database, "script_resource", 1, kActing),
             Register<&CSqliteFunctions::Action>(database, "script_action", -1, kActing),
         }) {
        if (result != SQLITE_OK) return result;
    }
    return SQLITE_OK;
}

template <CSqliteFunctions::Function kFunction>
int CSqliteFunctions::Register(sqlite3* database, const char* name, int arguments, int flags) {
    return ::sqlite3_create_function_v2(database, name, arguments, flags, this, &Call<kFunction>, nullptr,
                                        nullptr, nullptr);
}

template <CSqliteFunctions::Function kFunction>
void CSqliteFunctions::Call(sqlite3_context* context, int count, sqlite3_value** arguments) noexcept {
    auto& self = *static_cast<CSqliteFunctions*>(::sqlite3_user_data(context));
    try {
        const CFaultScope scope;
        const HRESULT result = (self.*kFunction)(context, {arguments, static_cast<std::size_t>(count)});
        if (!Succeeded(result)) self.Fail(context, result);
    } catch (const std::bad_alloc&) {
        ::sqlite3_result_error_nomem(context);
    } catch (CException*) {
        TakeCaughtFault();
        ::sqlite3_result_error(context, "fault", -1);
    }
}

void CSqliteFunctions::Fail(sqlite3_context* context, HRESULT result) {
    // The numbers of calls by name mean something else to whoever looks for system errors.
    const bool isOfCall = (static_cast<std::uint32_t>(result) & 0xFFFF0000) == 0x80020000;
    if (Succeeded(m_failure)) m_failure = isOfCall ? DB_E_ERRORSINCOMMAND : result;
    std::wstring description = TakeErrorInfo();
    if (description.empty()) description = HResultMessage(result);
    const std::string text = ToUtf8(description);
    ::sqlite3_result_error(context, text.c_str(), static_cast<int>(text.size()));
}

HRESULT CSqliteFunctions::ResultOfStep(HRESULT result) noexcept {
    const HRESULT failure = std::exchange(m_failure, S_OK);
    const bool isOwn = Succeeded(result) || result == DB_E_CANCELED || Succeeded(failure);
    return isOwn ? result : failure;
}

HRESULT CSqliteFunctions::Provenance(sqlite3_context*, std::span<sqlite3_value*> arguments) {
    const auto text = ToText(arguments[0]);
    return text && m_functions ? m_functions->SetProvenance(*text) : S_OK;
}

HRESULT CSqliteFunctions::Header(sqlite3_context*, std::span<sqlite3_value*> arguments) {
    const auto text = ToText(arguments[0]);
    return text && m_functions ? m_functions->AddHeader(*text) : S_OK;
}

HRESULT CSqliteFunctions::Decode(sqlite3_context* context, std::span<sqlite3_value*> arguments) {
    const auto text = ToText(arguments[0]);
    if (!text) return S_OK;
    const std::string decoded = DecodeFormText(ToUtf8(*text));
    ::sqlite3_result_text64(context, decoded.data(), decoded.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    return S_OK;
}

HRESULT CSqliteFunctions::Library(sqlite3_context*, std::span<sqlite3_value*> arguments) {
    const auto path = ToText(arguments[0]);
    if (!path) return Missing(L"The path of script_library");
    return m_functions ? m_functions->SetScriptLibrary(*path) : E_FAIL;
}

HRESULT CSqliteFunctions::Resource(sqlite3_context*, std::span<sqlite3_value*> arguments) {
    return m_functions ? m_functions->SetScriptResource(ToVariant(arguments[0])) : E_FAIL;
}

HRESULT CSqliteFunctions::Action(sqlite3_context* context, std::span<sqlite3_value*> arguments) {
    const auto name = arguments.empty() ? std::nullopt : ToText(arguments[0]);
    if (!name) return Missing(L"The name of script_action");
    if (!m_functions) return E_FAIL;
    std::vector<CVariant> values;
    for (sqlite3_value* const argument : arguments.subspan(1)) values.push_back(ToVariant(argument));
    CVariant result;
    const HRESULT ran = m_functions->RunScriptAction(*name, values, result);
    if (!Succeeded(ran)) return ran;
    if (ReturnValue(context, result)) return S_OK;
    SetErrorInfo(L"The script action \"" + *name + L"\" returned a value of a type that no column holds.");
    return DISP_E_TYPEMISMATCH;
}

std::string DecodeFormText(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t index = 0; index < text.size(); ++index) {
        const char character = text[index];
        const int high = index + 2 < text.size() ? HexDigit(static_cast<wchar_t>(text[index + 1])) : -1;
        const int low = high >= 0 ? HexDigit(static_cast<wchar_t>(text[index + 2])) : -1;
        if (character == '%' && low >= 0) {
            bytes += static_cast<char>(high * 16 + low);
            index += 2;
        } else {
            bytes += character == '+' ? ' ' : character;
        }
    }
    // Through wide characters and back, so that what is no UTF-8 becomes U+FFFD.
    return ToUtf8(FromUtf8(bytes));
}

}  // namespace quorbel
