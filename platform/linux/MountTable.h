// The kernel's mount table, read as text.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace platform {

struct Mount {
    std::string point;   // where, without a trailing slash but the root's
    std::string device;  // "major:minor" that its files show
    std::string type;    // of the file system, as the kernel names it
    std::string source;  // what is mounted: a device's path, a server's folder, or a word
};

// The mount, out of a table of the form of /proc/self/mountinfo, that a path without links and on `device` lies below:
// the longest mount point of that device; where two are equal the later, which lies over the earlier. File systems
// whose files show other devices than their mount (btrfs subvolumes) count by length only. Nothing for an empty table.
std::optional<Mount> FindMountInTable(std::string_view table, std::string_view realPath, dev_t device);

// The mount of an existing path, links followed. Nothing when the path doesn't exist or the system doesn't tell.
std::optional<Mount> FindMount(const char* path);

// Whether a file system of that type reaches its files over a network.
bool IsNetworkType(std::string_view type);

// Test seam: the table's text from now on; nothing: the kernel's again.
void SetMountTable(std::optional<std::string> text);

}  // namespace platform
