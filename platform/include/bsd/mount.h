// Which volume a path lies on.
#pragma once

#include <optional>
#include <string>

// The mount point of the volume that holds the path (links followed), without a trailing slash but the root's. Nothing
// when the path doesn't exist or the system doesn't tell. Any thread.
std::optional<std::string> mount_point_of(const char* path);
