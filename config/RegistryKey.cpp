#include "config/RegistryKey.h"

namespace quorbel {

namespace {

CResult<CRegistryKey> Wrap(CResult<std::unique_ptr<IKey>> key) {
    if (!key.IsOk()) return key.Error();
    return CRegistryKey(std::move(key).Value());
}

CStatus Deliver(const CNamedValue& entry, const CRegistryKey::OnText& onText,
                const CRegistryKey::OnNumber32& onNumber32, const CRegistryKey::OnNumber64& onNumber64) {
    const CValue& value = entry.value;
    switch (value.type) {
        case ValueType::Text: return onText ? onText(entry.name, value.AsText()) : CStatus();
        case ValueType::ExpandableText:
            return onText ? onText(entry.name, ExpandEnvironment(value.AsText())) : CStatus();
        case ValueType::Number32: {
            const auto number = value.AsNumber32();
            return onNumber32 && number ? onNumber32(entry.name, *number) : CStatus();
        }
        case ValueType::Number64: {
            const auto number = value.AsNumber64();
            return onNumber64 && number ? onNumber64(entry.name, *number) : CStatus();
        }
        case ValueType::None:
        case ValueType::Binary:
        case ValueType::Number32BigEndian:
        case ValueType::Link:
        case ValueType::MultiText: return {};
    }
    return {};  // a type number that has no name
}

}  // namespace

CResult<CRegistryKey> CRegistryKey::OpenKey(std::wstring_view path, KeyAccess access) const {
    return Wrap(m_key->Open(path, access));
}

CResult<CRegistryKey> CRegistryKey::CreateKey(std::wstring_view path) { return Wrap(m_key->Create(path)); }

CResult<CRegistryKey> CRegistryKey::DuplicateKey() const { return Wrap(m_key->Duplicate()); }

CResult<CValue> CRegistryKey::QueryValue(std::wstring_view name) const { return m_key->Query(name); }

CStatus CRegistryKey::EnumerateSubkeys(const OnSubkey& onSubkey) const {
    const auto names = m_key->Subkeys();
    if (!names.IsOk()) return SystemError(names.Error());
    for (const std::wstring& name : names.Value()) RETURN_IF_FAILED(onSubkey(name));
    return {};
}

CStatus CRegistryKey::EnumerateValues(const OnText& onText, const OnNumber32& onNumber32,
                                      const OnNumber64& onNumber64) const {
    const auto values = m_key->Values();
    if (!values.IsOk()) return SystemError(values.Error());
    for (const CNamedValue& entry : values.Value()) {
        RETURN_IF_FAILED(Deliver(entry, onText, onNumber32, onNumber64));
    }
    return {};
}

ErrorCode CRegistryKey::WatchKey(WatchScope scope, WatchFilter filter, std::shared_ptr<CEvent> event) {
    return m_key->Watch(scope, filter, std::move(event));
}

}  // namespace quorbel
