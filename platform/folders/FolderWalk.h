#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileDescriptor.h"

namespace quorbel {

/// Says whether the system is told of everything that happens in a folder, open in any way: it is not on file
/// systems of the network and of other processes.
bool TellsItsChanges(int folder) noexcept;

/// Says whether a folder, open in any way, is one of those that the kernel makes up, such as /proc.
bool IsMadeByKernel(int folder) noexcept;

/// Where a path leads.
enum class WalkEnd {
    Folder,      ///< to a folder
    Nothing,     ///< to nothing, or to what is no folder; that this changes will be told
    NotFollowed  ///< somewhere, but not every change of that would be told
};

/// Goes along an absolute path folder by folder, through symbolic links, and has every folder on the way
/// watched for the name that leads on, before it looks what that name stands for.
class CFolderWalk {
 public:
    /// Watches `name` in an open folder; gives 0 or an errno value.
    using Watch = std::function<int(int folder, std::string_view name)>;

    explicit CFolderWalk(Watch watch) : m_watch(std::move(watch)) {}

    WalkEnd Go(std::string_view path);

    /// The folder that was reached; open for its path only (O_PATH).
    int Folder() const noexcept { return m_folder.Get(); }

 private:
    enum class Step { Taken, Nothing, NotFollowed };

    void PutAhead(std::string_view path);
    Step Enter(CFileDescriptor folder);
    Step EnterRoot();
    Step Take(const std::string& name);
    Step FollowLink(int link);

    const Watch m_watch;
    CFileDescriptor m_folder;
    std::vector<std::string> m_ahead;  // the segments still to go, the next one last
    int m_links = 0;
};

}  // namespace quorbel
