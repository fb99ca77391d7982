// The kernel's mount table, read as text.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace platform {

// The mount point, out of a table of the form of /proc/self/mountinfo, that a path without links and on `device` lies
// below: the longest one of that device; where two are equal the later, which lies over the earlier. File systems whose
// files show other devices than their mount (btrfs subvolumes) count by length only. Nothing for an empty table.
std::optional<std::string> FindMountPoint(std::string_view table, std::string_view realPath, dev_t device);

// Test seam: the table's text from now on; nothing: the kernel's again.
void SetMountTable(std::optional<std::string> text);

}  // namespace platform
