#include "components/provider/OdbcParameters.h"

#include <algorithm>

#include "components/provider/SqliteFunctions.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/com/Stream.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

HRESULT Refuse(const std::wstring& name, std::wstring_view reason) {
    SetErrorInfo(L"The parameter \"" + name + L"\" " + std::wstring(reason));
    return DB_E_ERRORSINCOMMAND;
}

HRESULT ReadBytes(IUnknown* object, OdbcParameter& parameter) {
    CComPtr<ISequentialStream> stream;
    if (!object || !Succeeded(object->QueryInterface(ISequentialStream::kId, stream.ReceiveVoid())))
        return E_FAIL;
    static constexpr char kDigits[] = "0123456789abcdef";
    parameter = "\\x";
    unsigned char bytes[4096];
    std::uint32_t read = 0;
    do {
        const HRESULT result = stream->Read(bytes, sizeof(bytes), &read);
        if (!Succeeded(result)) return result;
        for (std::uint32_t index = 0; index < read; ++index) {
            *parameter += kDigits[bytes[index] >> 4];
            *parameter += kDigits[bytes[index] & 15];
        }
    } while (read == sizeof(bytes));
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

HRESULT ChooseOdbcParameters(const COdbcStatement& statement, std::span<const CSqlArgument> arguments,
                             std::vector<OdbcParameter>& parameters) {
    for (const auto& wanted : statement.parameters) {
        const auto argument = std::find_if(arguments.begin(), arguments.end(),
                                           [&](const CSqlArgument& one) { return one.name == wanted.name; });
        OdbcParameter parameter;
        if (argument != arguments.end() && !Succeeded(Convert(argument->value, parameter))) {
            return Refuse(wanted.name, L"has a value of a type that cannot be passed.");
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
