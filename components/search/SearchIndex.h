#pragma once

#include <functional>
#include <memory>
#include <string>

#include "components/search/PublishedFolders.h"
#include "components/search/text/TextWorker.h"
#include "platform/Clock.h"

namespace quorbel {

/// The index's folder below the root folder.
inline constexpr const char* kSearchFolder = "search";

/// The index of the published folders' files, kept up to date by threads of its own for as long as it lives.
/// Nothing is taken out of it before Publish has been called for the first time.
class ISearchIndex : public IPublishedFolders {
 public:
    struct Options {
        std::string folder;           ///< absolute path; made when it is not there
        CTextWorker::Options worker;  ///< what reads formats that are not trusted
        IClock& clock;
        /// Told why the index cannot follow: once for each failure in a row.
        std::function<void(const std::wstring&)> report;
    };

    /// Errors: no thread, no inotify instance. (An index that cannot be written is tried again.)
    static CResult<std::unique_ptr<ISearchIndex>> Start(Options options);

    /// A file of this name in the index's folder asks for making the index anew; it is removed then.
    static constexpr const char* kRebuildRequest = "rebuild";
};

}  // namespace quorbel
