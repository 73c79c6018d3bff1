#pragma once

#include <string>
#include <vector>

namespace quorbel {

/// Takes the folders whose files may be searched.
class IPublishedFolders {
 public:
    virtual ~IPublishedFolders() = default;
    /// These folders and all below them, as ToLocalPath takes their paths, in place of those before. From any
    /// thread; returns at once.
    virtual void Publish(const std::vector<std::wstring>& folders) = 0;
};

}  // namespace quorbel
