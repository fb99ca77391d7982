// How the block device below a mount is attached, by the kernel's device folder (/sys/dev/block).
#pragma once

#include "MountTable.h"

#include <string>

namespace platform {

struct BlockDevice {
    bool isRemovable = false;  // its medium can be taken out
    bool isExternal = false;   // it hangs on USB, FireWire or Thunderbolt
};

// Of the device that the mount's files show, or the one that its source names (btrfs). Neither of the two for mounts
// without one.
BlockDevice FindBlockDevice(const Mount& mount);

// Test seam: another folder of that form.
void SetBlockDevicesFolder(std::string path);

}  // namespace platform
