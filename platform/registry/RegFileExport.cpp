#include "platform/Text.h"
#include "platform/registry/Names.h"
#include "platform/registry/RegFileParser.h"

namespace quorbel {

namespace {

constexpr std::wstring_view kLineEnd = L"\r\n";
constexpr std::size_t kLongestLine = 79;

std::wstring Quote(std::wstring_view text) {
    std::wstring quoted = L"\"";
    for (wchar_t character : text) {
        if (character == L'\\' || character == L'"') quoted.push_back(L'\\');
        quoted.push_back(character);
    }
    return quoted += L'"';
}

std::wstring LowerHex(std::uint32_t number, int width) {
    return FoldCase(ToHex(number, width));
}

/// The text, when reading it back from between quotation marks gives the same bytes.
std::optional<std::wstring> PlainText(const CValue& value) {
    if (value.type != ValueType::Text) return std::nullopt;
    std::wstring text = value.AsText();
    if (text.find_first_of(std::wstring_view(L"\0\r\n", 3)) != text.npos) return std::nullopt;
    if (CValue::FromText(text) != value) return std::nullopt;
    return text;
}

void AppendBytes(std::wstring& output, std::size_t column, std::string_view bytes) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const bool last = i + 1 == bytes.size();
        output += LowerHex(static_cast<unsigned char>(bytes[i]), 2);
        if (last) return;
        output += L',';
        column += 3;
        if (column + 3 <= kLongestLine - 1) continue;
        output += L"\\\r\n  ";
        column = 2;
    }
}

void AppendValue(std::wstring& output, const CNamedValue& named) {
    const std::size_t start = output.size();
    output += named.name.empty() ? L"@" : Quote(named.name);
    output += L'=';
    const auto number = named.value.AsNumber32();
    if (const auto text = PlainText(named.value)) {
        output += Quote(*text);
    } else if (named.value.type == ValueType::Number32 && number) {
        output += L"dword:" + LowerHex(*number, 8);
    } else {
        output += L"hex";
        if (named.value.type != ValueType::Binary) {
            output += L'(' + LowerHex(static_cast<std::uint32_t>(named.value.type), 1) + L')';
        }
        output += L':';
        AppendBytes(output, output.size() - start, named.value.data);
    }
    output += kLineEnd;
}

/// `path` with the spelling that its keys were created with.
CResult<std::wstring> CreatedPath(const IKey& root, std::wstring_view path) {
    const auto names = SplitKeyPath(path);
    if (!names.IsOk()) return names.Error();
    std::wstring created;
    for (std::wstring_view name : names.Value()) {
        const auto parent = root.Open(created, KeyAccess::Read);
        if (!parent.IsOk()) return parent.Error();
        const auto subkeys = parent.Value()->Subkeys();
        if (!subkeys.IsOk()) return subkeys.Error();
        const auto found = std::find_if(subkeys.Value().begin(), subkeys.Value().end(),
                                        [name](const std::wstring& key) { return EqualNoCase(key, name); });
        if (found == subkeys.Value().end()) return ErrorCode::FileNotFound;
        created += L'\\' + *found;
    }
    return created;
}

ErrorCode AppendTree(std::wstring& output, const IKey& key, const std::wstring& path) {
    const auto values = key.Values();
    if (!values.IsOk()) return values.Error();
    output += kLineEnd;
    output += L"[HKEY_LOCAL_MACHINE" + path + L']';
    output += kLineEnd;
    for (const CNamedValue& value : values.Value()) AppendValue(output, value);
    const auto subkeys = key.Subkeys();
    if (!subkeys.IsOk()) return subkeys.Error();
    for (const std::wstring& name : subkeys.Value()) {
        const auto subkey = key.Open(name, KeyAccess::Read);
        if (!subkey.IsOk()) return subkey.Error();
        const ErrorCode error = AppendTree(output, *subkey.Value(), path + L'\\' + name);
        if (error != ErrorCode::Success) return error;
    }
    return ErrorCode::Success;
}

}  // namespace

CResult<std::string> ExportRegFile(IRegistry& registry, std::wstring_view path) {
    // Keeps writers out until all is read.
    const auto transaction = registry.Begin();
    if (!transaction.IsOk()) return transaction.Error();
    const std::unique_ptr<IKey> root = registry.LocalMachine();
    const auto created = CreatedPath(*root, path);
    if (!created.IsOk()) return created.Error();
    const auto key = root->Open(created.Value(), KeyAccess::Read);
    if (!key.IsOk()) return key.Error();
    std::wstring output(L"\uFEFF");
    output += kRegFileHeader;
    output += kLineEnd;
    const ErrorCode error = AppendTree(output, *key.Value(), created.Value());
    if (error != ErrorCode::Success) return error;
    return ToUtf16Bytes(output);
}

}  // namespace quorbel
