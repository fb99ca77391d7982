// Which volume a path lies on.
#pragma once

#include <optional>
#include <string>

// The mount point of the volume that holds the path (links followed), without a trailing slash but the root's. Nothing
// when the path doesn't exist or the system doesn't tell. Any thread.
std::optional<std::string> mount_point_of(const char* path);

// The name of that volume's file system: "FAT32", "FAT16", "NTFS", else as the kernel calls it ("ext4", "exfat").
// Nothing when it can't be told.
std::optional<std::string> volume_type_of(const char* path);
