#pragma once

#include <memory>

#include "components/archive/ArchiveFileSystem.h"
#include "platform/com/ClassRegistry.h"
#include "platform/registry/Key.h"

namespace quorbel {

/// Makes the archive's file system component known for as long as the result lives, over the local file
/// system. Its settings are read from SOFTWARE\Quorbel\Archive whenever they are needed: "Drives" (a subkey
/// with one text value a letter, the folder that the drive stands for; C is the local root unless set) and
/// "Views" (the folder of the views: view V of file F is the file F/V below it).
CComRegistration RegisterLocalArchive(std::shared_ptr<IKey> localMachine);

}  // namespace quorbel
