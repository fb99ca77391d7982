// InfoPlist: what a bundle says about itself, read from <bundle>/Contents/Info.plist, XML or binary. The file may come
// from anybody, so whatever is out of bounds counts as absent: no file of more than 1 MiB, no document type entities,
// no unknown format. Plain values, owned by the caller. Any thread.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

struct InfoPlist {
    // The texts of the top dictionary by key, UTF-8. Numbers and other values are left out, so is a text over 4,096
    // bytes.
    std::map<std::string, std::string, std::less<>> strings;
    // The keys of the dictionary "MachServices": the service names that the bundle's program may register.
    std::vector<std::string> machServices;

    // The text of `key`; null when there is none. Lives as long as this object.
    const std::string* String(std::string_view key) const;
};

// Reads a bundle's file; nothing when there is none (errno: ENOENT or ENOTDIR), when it cannot be used (EINVAL) or not
// be read now (any other). A few tens of microseconds for a usual file.
std::optional<InfoPlist> ReadInfoPlist(const std::string& bundleRoot);

// The same from the file's bytes.
std::optional<InfoPlist> ParseInfoPlist(std::string_view bytes);

}  // namespace platform
