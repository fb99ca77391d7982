#include "MountTable.h"

#include "Guarded.h"

#include <bsd/mount.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <system_error>
#include <utility>

namespace platform {

namespace {

Guarded<std::optional<std::string>>& Override() {
    static auto& text = *new Guarded<std::optional<std::string>>;
    return text;
}

std::string MountTableText() {
    if (const auto replaced = Override().Get()) return *replaced;
    std::ostringstream text;
    text << std::ifstream("/proc/self/mountinfo").rdbuf();
    return text.str();
}

// Takes the text up to `end` off the front of `rest`, and the end itself.
std::string_view Take(std::string_view& rest, char end) {
    const size_t length = std::min(rest.find(end), rest.size());
    const std::string_view taken = rest.substr(0, length);
    rest.remove_prefix(std::min(length + 1, rest.size()));
    return taken;
}

// The kernel writes blank, tab, line feed and back slash as a back slash and three octal digits.
std::string Unescape(std::string_view text) {
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned code = 0;
        const char* digits = text.data() + i + 1;
        if (text[i] == '\\' && text.size() - i > 3 && std::from_chars(digits, digits + 3, code, 8).ptr == digits + 3) {
            plain += static_cast<char>(code);
            i += 3;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

// 36 35 98:0 /root/of/mount /mount/point options optional… - type source options
Mount ReadLine(std::string_view line) {
    constexpr std::string_view kSeparator = " - ";
    Mount mount;
    Take(line, ' ');
    Take(line, ' ');
    mount.device = Take(line, ' ');
    Take(line, ' ');
    mount.point = Unescape(Take(line, ' '));
    line.remove_prefix(std::min(line.find(kSeparator), line.size()));
    line.remove_prefix(std::min(kSeparator.size(), line.size()));
    mount.type = Unescape(Take(line, ' '));
    mount.source = Unescape(Take(line, ' '));
    return mount;
}

bool LiesBelow(std::string_view path, std::string_view folder) {
    if (folder == "/") return path.starts_with('/');
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace

std::optional<Mount> FindMountInTable(std::string_view table, std::string_view realPath, dev_t device) {
    std::optional<Mount> found;
    const std::string wanted = std::to_string(major(device)) + ":" + std::to_string(minor(device));
    while (!table.empty()) {
        Mount mount = ReadLine(Take(table, '\n'));
        if (mount.point.empty() || !LiesBelow(realPath, mount.point)) continue;
        const bool onDevice = mount.device == wanted, foundOnDevice = found && found->device == wanted;
        const bool isBetter =
            onDevice == foundOnDevice ? !found || mount.point.size() >= found->point.size() : onDevice;
        if (isBetter) found = std::move(mount);
    }
    return found;
}

std::optional<Mount> FindMount(const char* path) {
    struct stat status {};
    if (!path || ::stat(path, &status) != 0) return std::nullopt;
    std::error_code error;
    const std::string real = std::filesystem::canonical(path, error).string();
    if (error) return std::nullopt;
    return FindMountInTable(MountTableText(), real, status.st_dev);
}

bool IsNetworkType(std::string_view type) {
    static constexpr std::string_view kTypes[] = {
        "nfs",         "nfs4",      "cifs",           "smb3",           "smbfs",          "9p",
        "ceph",        "afs",       "ncpfs",          "davfs",          "coda",           "lustre",
        "beegfs",      "glusterfs", "fuse.sshfs",     "fuse.ceph",      "fuse.curlftpfs", "fuse.davfs",
        "fuse.rclone", "fuse.s3fs", "fuse.glusterfs", "fuse.gvfsd-fuse"};
    return std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

void SetMountTable(std::optional<std::string> text) {
    Override().Set(std::move(text));
}

}  // namespace platform

std::optional<std::string> mount_point_of(const char* path) {
    auto mount = platform::FindMount(path);
    return mount ? std::optional(std::move(mount->point)) : std::nullopt;
}

std::optional<std::string> volume_type_of(const char* path) {
    const auto mount = platform::FindMount(path);
    if (!mount) return std::nullopt;
    static constexpr std::pair<std::string_view, const char*> kNames[] = {
        {"vfat", "FAT32"}, {"msdos", "FAT16"}, {"ntfs3", "NTFS"}, {"ntfs", "NTFS"}, {"ntfs-3g", "NTFS"}};
    for (const auto& [type, name] : kNames)
        if (mount->type == type) return name;
    return mount->type;
}
