// make-demo-archive SCRIPT DATABASE: makes the SQLite database DATABASE by running the SQL text in the file
// SCRIPT.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <sqlite3.h>
#include <string>

namespace {

using Database = std::unique_ptr<sqlite3, decltype(&::sqlite3_close)>;

std::optional<std::string> ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return file ? std::optional(std::move(content)) : std::nullopt;
}

/// The SQL function file(NAME): the bytes of a file in the script's folder.
void GiveFile(sqlite3_context* context, int, sqlite3_value** arguments) {
    const auto& folder = *static_cast<const std::filesystem::path*>(::sqlite3_user_data(context));
    const auto* const name = reinterpret_cast<const char*>(::sqlite3_value_text(arguments[0]));
    const auto content = name ? ReadFile(folder / name) : std::nullopt;
    if (!content) return ::sqlite3_result_error(context, "a file cannot be read", -1);
    ::sqlite3_result_blob64(context, content->data(), content->size(), SQLITE_TRANSIENT);
}

/// Empty when all went well.
std::string Run(const std::filesystem::path& script, const std::filesystem::path& file) {
    const auto text = ReadFile(script);
    if (!text) return "cannot read " + script.string();
    sqlite3* opened = nullptr;
    const int result = ::sqlite3_open(file.c_str(), &opened);
    const Database database(opened, &::sqlite3_close);
    if (result != SQLITE_OK) return "cannot make " + file.string();
    std::filesystem::path folder = script.parent_path();
    ::sqlite3_create_function(opened, "file", 1, SQLITE_UTF8, &folder, &GiveFile, nullptr, nullptr);
    if (::sqlite3_exec(opened, text->c_str(), nullptr, nullptr, nullptr) == SQLITE_OK) return {};
    return ::sqlite3_errmsg(opened);
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::fputs("usage: make-demo-archive SCRIPT DATABASE\n", stderr);
        return 2;
    }
    // Whoever finds the database finds it whole.
    const std::filesystem::path database = arguments[2];
    const std::filesystem::path unfinished = database.string() + ".new";
    std::error_code error;
    std::filesystem::remove(unfinished, error);
    std::string fault = Run(arguments[1], unfinished);
    if (fault.empty()) {
        std::filesystem::rename(unfinished, database, error);
        if (error) fault = error.message();
    }
    if (fault.empty()) return 0;
    std::fprintf(stderr, "make-demo-archive: %s\n", fault.c_str());
    return 1;
}
