#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "components/search/SearchManager.h"
#include "platform/Error.h"

namespace quorbel {

/// What is known of an index, for people.
struct CIndexStatus {
    std::string state;                    ///< what the index was doing when it was written last
    bool isFollowed = false;              ///< a process keeps it up to date right now
    std::optional<std::int64_t> changed;  ///< when it was written last, seconds since 1970
    std::int64_t folders = 0;
    std::int64_t documents = 0;
    std::int64_t texts = 0;    ///< documents whose text can be searched
    std::int64_t waiting = 0;  ///< documents whose text is still to be read
    std::int64_t skipped = 0;  ///< files without a document, and documents whose text could not be read
    std::uint64_t bytes = 0;   ///< of the index on disk
};

/// The index in a folder; FileNotFound when there is none, InvalidData when it is damaged.
/// @{
CResult<CIndexStatus> ReadIndexStatus(const std::string& folder);
/// Shows each skipped file: its path (any bytes) and why.
ErrorCode ForEachSkippedFile(const std::string& folder,
                             const std::function<void(std::string_view path, std::string_view reason)>& show);
/// @}

/// Runs a command of the search language on an index and shows each row, a text or none for each column.
/// Failures leave a description in platform/com/ErrorInfo.h.
HRESULT ForEachFound(const std::string& folder, const std::wstring& command,
                     const std::function<void(std::span<const std::optional<std::string>> row)>& show);

/// Asks whoever keeps the index up to date, now or later, to make it anew.
ErrorCode RequestRebuild(const std::string& folder);

}  // namespace quorbel
