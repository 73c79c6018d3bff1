#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "config/HostConfiguration.h"
#include "platform/Error.h"
#include "platform/Text.h"

namespace quorbel {

/// The web path of a folder by the beginning of its files' URLs.
using CRewriteTable = std::map<std::wstring, std::wstring>;

/// The value with the web path in place of the folder whose URL it begins with; unchanged when the table has
/// none.
std::wstring Rewrite(const CRewriteTable& table, std::wstring_view value);

/// What a search description may refer to.
struct CReferences {
    TextMap query;  ///< the request's query parameters, their values decoded
    TextMap named;  ///< named values of the host's configuration, and form fields
};

/// A search description, the text of a file of the kind "SEARCH", with its references resolved.
/// docs/search-files.md says what its entries mean.
class CSearchDescription {
 public:
    /// Adds the folders that are referred to to `rewrites`. InvalidParameter when a value of the request
    /// stands where it could be taken for a part of the command's language or lead out of a folder, or when
    /// the scope refers to a folder that is not there.
    static CResult<CSearchDescription> Parse(std::wstring_view text, const CReferences& references,
                                             CRewriteTable& rewrites);

    /// The value of an entry; null when there is none.
    const std::wstring* Find(std::wstring_view name) const;
    /// Calls `use` with name and value of each entry, in the alphabetical order of the names.
    template <class Use>
    void ForEach(Use&& use) const {
        for (const auto& [name, entry] : m_entries) use(name, entry.text);
    }

    /// The folder that restricts the search, "SCOPE" and "PATH" in normal form; empty for none. AccessDenied
    /// when values of the request lead out of the folder that stands before them.
    CResult<std::wstring> Scope() const;

 private:
    class CResolver;
    struct CEntry {
        std::wstring text;
        std::optional<std::size_t> fixedSize;  ///< of what stands before the first value of the request
        std::size_t folderEnd = 0;             ///< where the last folder that is referred to ends
    };
    std::map<std::wstring, CEntry, CLessNoCase> m_entries;
};

/// A path in lexically normal form: "\" separates, no segment is empty, "." or "..". A leading separator
/// stays. "." for nothing.
std::wstring NormalPath(std::wstring_view path);

}  // namespace quorbel
