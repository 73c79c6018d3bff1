#pragma once

#include <memory>
#include <string_view>

#include "data/scripting/ScriptEngine.h"
#include "platform/Library.h"

namespace quorbel::LibScripting {

/// One loaded script engine library. Libraries call Execute as well, through the table of virtual functions
/// alone. From any thread.
class Engine {
 public:
    explicit Engine(CLibrary library) noexcept : m_library(library) {}

    /// Performs an action; `result` is VT_ERROR when it failed, or the library has no entry point (127 as
    /// HRESULT). Throws whatever the library throws.
    virtual void Execute(CVariant& result, CVariant& resource, const std::wstring& name,
                         NamedArguments& named, PositionalArguments& positional);
    virtual ~Engine() = default;

 private:
    const CLibrary m_library;
};

/// The engine of the library at `path` (see CLibrary::Load), loaded when it is asked for the first time and
/// then kept until the process ends. A failure is not kept. From any thread.
CResult<std::shared_ptr<Engine>> FindEngine(std::wstring_view path);

}  // namespace quorbel::LibScripting
