#include "VolumeDevice.h"

#include "Guarded.h"

#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <system_error>
#include <utility>

namespace platform {
namespace {

namespace fs = std::filesystem;

Guarded<std::string>& DevicesFolder() {
    static auto& folder = *new Guarded<std::string>("/sys/dev/block");
    return folder;
}

// The device's folder below /sys/devices, whose path tells the buses on the way; empty when there is none.
fs::path FolderOf(const std::string& majorAndMinor) {
    std::error_code error;
    fs::path folder = fs::canonical(fs::path(DevicesFolder().Get()) / majorAndMinor, error);
    return error ? fs::path() : folder;
}

fs::path FolderOf(const Mount& mount) {
    fs::path folder = FolderOf(mount.device);
    struct stat status {};
    if (folder.empty() && ::stat(mount.source.c_str(), &status) == 0 && S_ISBLK(status.st_mode))
        folder = FolderOf(std::to_string(major(status.st_rdev)) + ":" + std::to_string(minor(status.st_rdev)));
    return folder;
}

}  // namespace

BlockDevice FindBlockDevice(const Mount& mount) {
    fs::path folder = FolderOf(mount);
    if (folder.empty()) return {};
    std::error_code error;
    if (fs::exists(folder / "partition", error)) folder = folder.parent_path();
    BlockDevice device;
    std::ifstream(folder / "removable") >> device.isRemovable;
    for (const char* bus : {"/usb", "/firewire", "/fw", "/thunderbolt"})
        if (folder.string().find(bus) != std::string::npos) device.isExternal = true;
    return device;
}

void SetBlockDevicesFolder(std::string path) {
    DevicesFolder().Set(std::move(path));
}

}  // namespace platform
