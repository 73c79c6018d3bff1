#include "platform/Text.h"
#include "tools/qbctl/Commands.h"
#include "tools/qbctl/KeyArgument.h"
#include "tools/qbctl/ValueText.h"

namespace quorbel {

namespace {

struct CQuery {
    std::optional<std::wstring> value;  ///< the one value asked for
    bool below;
    bool json;
};

std::wstring Join(const std::wstring& path, const std::wstring& name) {
    return path.empty() ? name : path + L'\\' + name;
}

/// One key's content, as far as it was asked for.
struct CContent {
    std::wstring path;
    std::vector<CNamedValue> values;
    std::vector<std::wstring> subkeys;
};

CResult<CContent> Read(const IKey& key, const std::wstring& path, const CQuery& query) {
    CResult<std::vector<CNamedValue>> values = key.Values();
    if (!values.IsOk()) return values.Error();
    CResult<std::vector<std::wstring>> subkeys = key.Subkeys();
    if (!subkeys.IsOk()) return subkeys.Error();
    CContent content{path, std::move(values).Value(), std::move(subkeys).Value()};
    if (query.value) {
        std::erase_if(content.values,
                      [&](const CNamedValue& value) { return !EqualNoCase(value.name, *query.value); });
    }
    return content;
}

void ShowText(const CContent& content, const CQuery& query) {
    if (query.value && content.values.empty()) return;
    PrintLine(FullName(content.path));
    for (const CNamedValue& value : content.values) {
        PrintLine(L"    " + (value.name.empty() ? L"(Default)" : value.name) + L"    " +
                  TypeName(value.value.type) + L"    " + FormatData(value.value));
    }
    PrintLine(L"");
    if (query.below || query.value) return;
    for (const std::wstring& name : content.subkeys) PrintLine(FullName(Join(content.path, name)));
}

void ShowJson(const CContent& content, const CQuery& query) {
    if (query.value && content.values.empty()) return;
    nlohmann::ordered_json object{{"key", ToUtf8(FullName(content.path))},
                                  {"values", nlohmann::json::array()},
                                  {"subkeys", nlohmann::json::array()}};
    for (const CNamedValue& value : content.values) {
        object["values"].push_back({{"name", ToUtf8(value.name)},
                                    {"type", ToUtf8(TypeName(value.value.type))},
                                    {"data", DataToJson(value.value)}});
    }
    for (const std::wstring& name : content.subkeys) object["subkeys"].push_back(ToUtf8(name));
    PrintData(object.dump());
}

/// Shows a key and, when asked for, all below; counts the values shown.
ErrorCode Show(const IKey& key, const std::wstring& path, const CQuery& query, std::size_t& shown) {
    const CResult<CContent> content = Read(key, path, query);
    if (!content.IsOk()) return content.Error();
    if (query.json) {
        ShowJson(content.Value(), query);
    } else {
        ShowText(content.Value(), query);
    }
    shown += content.Value().values.size();
    if (!query.below) return ErrorCode::Success;
    for (const std::wstring& name : content.Value().subkeys) {
        const auto subkey = key.Open(name, KeyAccess::Read);
        // It may have been removed meanwhile.
        if (subkey.Error() == ErrorCode::FileNotFound) continue;
        if (!subkey.IsOk()) return subkey.Error();
        const ErrorCode error = Show(*subkey.Value(), Join(path, name), query, shown);
        if (error != ErrorCode::Success && error != ErrorCode::KeyDeleted) return error;
    }
    return ErrorCode::Success;
}

}  // namespace

ExitCode RegQuery(const CArguments& arguments) {
    if (arguments.Has(L"/v") && arguments.Has(L"/ve")) {
        return FailUsage(L"/v and /ve exclude each other.", L"qbctl reg query");
    }
    const std::optional<std::wstring> path = ParseKey(arguments.Operands()[0]);
    if (!path) return ExitCode::Usage;
    CQuery query{std::nullopt, arguments.Has(L"/s"), arguments.Has(L"--json")};
    if (const std::wstring* name = arguments.Value(L"/v")) query.value = *name;
    if (arguments.Has(L"/ve")) query.value.emplace();
    return WithRegistry([&](IRegistry& registry) {
        const auto key = registry.LocalMachine()->Open(*path, KeyAccess::Read);
        if (!key.IsOk()) return Fail(FullName(*path), key.Error());
        std::size_t shown = 0;
        const ErrorCode error = Show(*key.Value(), *path, query, shown);
        if (error != ErrorCode::Success) return Fail(FullName(*path), error);
        if (query.value && shown == 0) return Fail(L"There is no such value: " + *query.value);
        return ExitCode::Success;
    });
}

}  // namespace quorbel
