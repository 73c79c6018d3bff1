#include "components/provider/OdbcParameters.h"

#include "components/oledb/ByteStream.h"
#include "components/provider/SqliteFunctions.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

HRESULT Refuse(const std::wstring& name, std::wstring_view reason) {
    SetErrorInfo(L"The parameter \"" + name + L"\" " + std::wstring(reason));
    return DB_E_ERRORSINCOMMAND;
}

HRESULT ReadBytes(IUnknown* object, OdbcParameter& parameter) {
    std::string bytes;
    const HRESULT result = ReadAll(object, kMostStreamBytes, bytes);
    if (!Succeeded(result)) return result;
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string& text = parameter.emplace("\\x");
    text.reserve(text.size() + 2 * bytes.size());
    for (const char byte : bytes) {
        text += kDigits[static_cast<unsigned char>(byte) >> 4];
        text += kDigits[byte & 15];
    }
    return S_OK;
}

HRESULT Convert(const VARIANT& value, OdbcParameter& parameter) {
    if (value.vt == VT_NULL || value.vt == VT_EMPTY) {
        parameter = std::nullopt;
        return S_OK;
    }
    if (value.vt == VT_BOOL) {
        parameter = value.boolVal ? "true" : "false";
        return S_OK;
    }
    if (value.vt == VT_UNKNOWN) return ReadBytes(value.punkVal, parameter);
    CVariant text;
    const HRESULT changed = VariantChangeType(text, value, VT_BSTR);
    if (Succeeded(changed)) parameter = ToUtf8(text.Text());
    return changed;
}

}  // namespace

HRESULT ChooseOdbcParameters(const COdbcStatement& statement, const CSqlArguments& arguments,
                             std::vector<OdbcParameter>& parameters) {
    for (const auto& wanted : statement.parameters) {
        const VARIANT* const argument = arguments.Find(wanted.name);
        OdbcParameter parameter;
        if (argument && !Succeeded(Convert(*argument, parameter))) {
            return Refuse(wanted.name, L"has a value that cannot be passed, for its type or its size.");
        }
        if (parameter && wanted.decoded) parameter = DecodeFormText(*parameter);
        if (parameter && parameter->find('\0') != std::string::npos) {
            return Refuse(wanted.name, L"holds a zero character, which no text of the server can.");
        }
        parameters.push_back(std::move(parameter));
    }
    return S_OK;
}

}  // namespace quorbel
