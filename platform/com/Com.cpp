#include "platform/com/Com.h"

#include "platform/Error.h"
#include "platform/crypto/KeyStorage.h"

namespace quorbel {

std::wstring HResultMessage(HRESULT result) {
    switch (result) {
        case S_OK: return L"The operation completed successfully.";
        case E_NOTIMPL: return L"Not implemented.";
        case E_NOINTERFACE: return L"No such interface supported.";
        case E_POINTER: return L"Invalid pointer.";
        case E_FAIL: return L"Unspecified error.";
        case NTE_BAD_DATA: return L"Bad data.";
        case NTE_NOT_FOUND: return L"The key was not found.";
        case NTE_BAD_KEYSET: return L"The key set does not exist.";
        case NTE_FAIL: return L"The cryptographic library failed.";
        case NTE_INVALID_PARAMETER: return L"The key's name is not valid.";
        case REGDB_E_CLASSNOTREG: return L"Class not registered.";
        default: break;
    }
    const auto value = static_cast<std::uint32_t>(result);
    const bool isWin32 = (value & 0xFFFF0000) == 0x80070000 || value <= 0xFFFF;
    return isWin32 ? SystemMessage(value & 0xFFFF).value_or(L"") : std::wstring();
}

}  // namespace quorbel
