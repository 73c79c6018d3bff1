#pragma once

#include <sqlite3.h>
#include <string_view>

#include "components/provider/SqlFunctions.h"

namespace quorbel {

/// The functions that a query file can call, as functions of one SQLite connection. They do what the
/// ISqlFunctions of the running command does. Outlives the connection.
class CSqliteFunctions {
 public:
    /// An SQLite result code.
    int Register(sqlite3* database);

    /// What the functions do from now on; null for nothing.
    void Use(ISqlFunctions* functions) noexcept {
        m_functions = functions;
        m_failure = S_OK;
    }
    /// The result of a step: that of the function that failed, when it was one.
    HRESULT ResultOfStep(HRESULT result) noexcept;

 private:
    using Function = HRESULT (CSqliteFunctions::*)(sqlite3_context*, std::span<sqlite3_value*>);
    template <Function kFunction>
    static void Call(sqlite3_context* context, int count, sqlite3_value** arguments) noexcept;
    template <Function kFunction>
    int Register(sqlite3* database, const char* name, int arguments, int flags);
    void Fail(sqlite3_context* context, HRESULT result);

    HRESULT Provenance(sqlite3_context* context, std::span<sqlite3_value*> arguments);
    HRESULT Header(sqlite3_context* context, std::span<sqlite3_value*> arguments);
    HRESULT Decode(sqlite3_context* context, std::span<sqlite3_value*> arguments);
    HRESULT Library(sqlite3_context* context, std::span<sqlite3_value*> arguments);
    HRESULT Resource(sqlite3_context* context, std::span<sqlite3_value*> arguments);
    HRESULT Action(sqlite3_context* context, std::span<sqlite3_value*> arguments);

    ISqlFunctions* m_functions = nullptr;
    HRESULT m_failure = S_OK;  // the first of a function since the last step
};

/// What a field of a form means: percent signs with two hexadecimal digits are bytes of UTF-8, "+" is a
/// blank; all else stays. Invalid UTF-8 becomes U+FFFD.
std::string DecodeFormText(std::string_view text);

}  // namespace quorbel
