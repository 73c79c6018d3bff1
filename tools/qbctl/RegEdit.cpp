#include "tools/qbctl/Commands.h"
#include "tools/qbctl/KeyArgument.h"
#include "tools/qbctl/ValueText.h"

namespace quorbel {

namespace {

std::wstring DisplayName(std::wstring_view value) {
    return value.empty() ? L"the default value" : L"\"" + std::wstring(value) + L"\"";
}

/// The value that `reg add` is to set, or the exit code after its complaint; none when it only creates a key.
std::variant<std::optional<CNamedValue>, ExitCode> ValueToAdd(const CArguments& arguments) {
    constexpr std::wstring_view kCommand = L"qbctl reg add";
    const std::wstring* name = arguments.Value(L"/v");
    const std::wstring* typeName = arguments.Value(L"/t");
    const std::wstring* data = arguments.Value(L"/d");
    const std::wstring* separator = arguments.Value(L"/s");
    if (name && arguments.Has(L"/ve")) return FailUsage(L"/v and /ve exclude each other.", kCommand);
    if (!name && !arguments.Has(L"/ve") && !typeName && !data) return std::optional<CNamedValue>();
    const std::optional<ValueType> type = ParseType(typeName ? *typeName : L"REG_SZ");
    if (!type) return FailUsage(L"Unknown type: " + *typeName, kCommand);
    if (separator && separator->empty()) return FailUsage(L"The separator is empty.", kCommand);
    const bool isNumber = *type == ValueType::Number32 || *type == ValueType::Number64;
    const std::wstring text = data ? *data : isNumber ? L"0" : L"";
    auto value = ParseData(*type, text, separator ? *separator : L"\\0");
    if (!value) return FailUsage(L"This is no data of type " + TypeName(*type) + L": " + text, kCommand);
    return std::optional(CNamedValue{name ? *name : L"", *std::move(value)});
}

/// Asks before a value is replaced. Outside of any transaction: nobody else waits for the answer.
bool MayReplace(const std::wstring& path, const CNamedValue& value) {
    bool may = false;
    const ExitCode code = WithRegistry([&](IRegistry& registry) {
        const auto key = registry.LocalMachine()->Open(path, KeyAccess::Read);
        may = !key.IsOk() || !key.Value()->Query(value.name).IsOk() ||
              Confirm(L"Replace " + DisplayName(value.name) + L"?", L"/f");
        return ExitCode::Success;
    });
    return code == ExitCode::Success && may;
}

ErrorCode DeleteValues(IKey& key) {
    const auto values = key.Values();
    if (!values.IsOk()) return values.Error();
    for (const CNamedValue& value : values.Value()) {
        const ErrorCode error = key.DeleteValue(value.name);
        if (error != ErrorCode::Success) return error;
    }
    return ErrorCode::Success;
}

/// What `reg delete` is to delete of a key's values; none for the key itself.
struct CValuesToDelete {
    bool all = false;
    std::wstring name;
};

ExitCode DeleteFrom(IKey& root, const std::wstring& path, const std::optional<CValuesToDelete>& values) {
    if (!values) {
        const ErrorCode error = root.DeleteTree(path);
        return error == ErrorCode::Success ? ExitCode::Success : Fail(FullName(path), error);
    }
    const auto key = root.Open(path, KeyAccess::ReadWrite);
    if (!key.IsOk()) return Fail(FullName(path), key.Error());
    const ErrorCode error = values->all ? DeleteValues(*key.Value()) : key.Value()->DeleteValue(values->name);
    if (error == ErrorCode::FileNotFound)
        return Fail(L"There is no such value: " + DisplayName(values->name));
    return error == ErrorCode::Success ? ExitCode::Success : Fail(FullName(path), error);
}

std::wstring DeleteQuestion(const std::wstring& path, const std::optional<CValuesToDelete>& values) {
    if (!values) return L"Delete " + FullName(path) + L" and everything below it?";
    const std::wstring what = values->all ? L"all values" : DisplayName(values->name);
    return L"Delete " + what + L" of " + FullName(path) + L"?";
}

}  // namespace

ExitCode RegAdd(const CArguments& arguments) {
    const std::optional<std::wstring> path = ParseKey(arguments.Operands()[0]);
    if (!path) return ExitCode::Usage;
    const auto toAdd = ValueToAdd(arguments);
    if (const auto* code = std::get_if<ExitCode>(&toAdd)) return *code;
    const auto& value = std::get<std::optional<CNamedValue>>(toAdd);
    if (value && !arguments.Has(L"/f") && !MayReplace(*path, *value)) return ExitCode::Failure;
    return WithTransaction([&](IKey& root) {
        const auto key = root.Create(*path);
        if (!key.IsOk()) return Fail(FullName(*path), key.Error());
        if (!value) return ExitCode::Success;
        const ErrorCode error = key.Value()->Set(value->name, value->value);
        return error == ErrorCode::Success ? ExitCode::Success : Fail(DisplayName(value->name), error);
    });
}

ExitCode RegDelete(const CArguments& arguments) {
    const int given = int(arguments.Has(L"/v")) + int(arguments.Has(L"/ve")) + int(arguments.Has(L"/va"));
    if (given > 1) return FailUsage(L"/v, /ve and /va exclude each other.", L"qbctl reg delete");
    const std::optional<std::wstring> path = ParseKey(arguments.Operands()[0]);
    if (!path) return ExitCode::Usage;
    std::optional<CValuesToDelete> values;
    if (given == 1) values.emplace(CValuesToDelete{arguments.Has(L"/va"), L""});
    if (const std::wstring* name = arguments.Value(L"/v")) values->name = *name;
    if (!values && path->empty()) return Fail(L"The root cannot be deleted.");
    if (!arguments.Has(L"/f") && !Confirm(DeleteQuestion(*path, values), L"/f")) return ExitCode::Failure;
    return WithTransaction([&](IKey& root) { return DeleteFrom(root, *path, values); });
}

}  // namespace quorbel
