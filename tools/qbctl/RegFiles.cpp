#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "platform/Text.h"
#include "platform/registry/RegFile.h"
#include "tools/qbctl/Commands.h"
#include "tools/qbctl/KeyArgument.h"

namespace quorbel {

namespace {

std::optional<std::string> ReadAll(std::istream& stream) {
    std::string content{std::istreambuf_iterator<char>(stream), {}};
    if (stream.bad()) return std::nullopt;
    return content;
}

std::optional<std::string> ReadInput(const std::wstring& name) {
    if (name == L"-") return ReadAll(std::cin);
    const std::filesystem::path path(ToUtf8(name));
    std::error_code ignored;
    std::ifstream file(path, std::ios::binary);
    // A folder opens, and only fails to be read.
    if (!file || std::filesystem::is_directory(path, ignored)) return std::nullopt;
    return ReadAll(file);
}

bool WriteOutput(const std::wstring& name, const std::string& content) {
    if (name == L"-") return std::fwrite(content.data(), 1, content.size(), stdout) == content.size();
    std::ofstream file(std::filesystem::path(ToUtf8(name)), std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    return file.good();
}

}  // namespace

ExitCode RegImport(const CArguments& arguments) {
    const std::wstring& name = arguments.Operands()[0];
    const std::optional<std::string> content = ReadInput(name);
    if (!content) return Fail(L"The file cannot be read: " + name);
    return WithRegistry([&](IRegistry& registry) {
        const std::optional<CRegFileError> error = ImportRegFile(registry, *content);
        if (!error) return ExitCode::Success;
        const std::wstring place = error->line == 0 ? L"" : L", line " + std::to_wstring(error->line);
        return Fail(name + place + L": " + error->reason + L" Nothing was imported.");
    });
}

ExitCode RegExport(const CArguments& arguments) {
    const std::optional<std::wstring> path = ParseKey(arguments.Operands()[0]);
    if (!path) return ExitCode::Usage;
    const std::wstring& name = arguments.Operands()[1];
    std::error_code ignored;
    const bool replaces = name != L"-" && std::filesystem::exists(ToUtf8(name), ignored);
    const bool asks = replaces && !arguments.Has(L"/y") && !arguments.Has(L"/f");
    if (asks && !Confirm(L"Replace the file " + name + L"?", L"/y")) return ExitCode::Failure;
    return WithRegistry([&](IRegistry& registry) {
        const CResult<std::string> text = ExportRegFile(registry, *path);
        if (!text.IsOk()) return Fail(FullName(*path), text.Error());
        return WriteOutput(name, text.Value()) ? ExitCode::Success
                                               : Fail(L"The file cannot be written: " + name);
    });
}

}  // namespace quorbel
