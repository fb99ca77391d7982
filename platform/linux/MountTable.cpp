#include "MountTable.h"

#include <bsd/LMutex.h>
#include <bsd/mount.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <system_error>

namespace platform {

namespace {

struct Override {
    LMutex mutex;
    std::optional<std::string> text L_GUARDED_BY(mutex);
};

Override& TheOverride() {
    static Override& instance = *new Override;
    return instance;
}

std::string MountTableText() {
    {
        Override& replaced = TheOverride();
        LMutexLock lock(replaced.mutex);
        if (replaced.text) return *replaced.text;
    }
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

bool IsDevice(std::string_view majorAndMinor, dev_t device) {
    return majorAndMinor == std::to_string(major(device)) + ":" + std::to_string(minor(device));
}

bool LiesBelow(std::string_view path, std::string_view folder) {
    if (folder == "/") return path.starts_with('/');
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace

std::optional<std::string> FindMountPoint(std::string_view table, std::string_view realPath, dev_t device) {
    std::optional<std::string> found;
    bool foundOnDevice = false;
    while (!table.empty()) {
        // 36 35 98:0 /root/of/mount /mount/point options …
        std::string_view line = Take(table, '\n');
        Take(line, ' ');
        Take(line, ' ');
        const bool onDevice = IsDevice(Take(line, ' '), device);
        Take(line, ' ');
        std::string mountPoint = Unescape(Take(line, ' '));
        if (mountPoint.empty() || !LiesBelow(realPath, mountPoint) || (foundOnDevice && !onDevice)) continue;
        const bool better = !found || onDevice != foundOnDevice || mountPoint.size() >= found->size();
        if (!better) continue;
        found = std::move(mountPoint);
        foundOnDevice = onDevice;
    }
    return found;
}

void SetMountTable(std::optional<std::string> text) {
    Override& replaced = TheOverride();
    LMutexLock lock(replaced.mutex);
    replaced.text = std::move(text);
}

}  // namespace platform

std::optional<std::string> mount_point_of(const char* path) {
    struct stat status {};
    if (!path || ::stat(path, &status) != 0) return std::nullopt;
    std::error_code error;
    const std::string real = std::filesystem::canonical(path, error).string();
    if (error) return std::nullopt;
    return platform::FindMountPoint(platform::MountTableText(), real, status.st_dev);
}
