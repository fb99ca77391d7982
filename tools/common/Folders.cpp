#include "Folders.h"

#include <CoreFoundation/CoreFoundation.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <pwd.h>
#include <string_view>
#include <unistd.h>

namespace tools {

namespace fs = std::filesystem;

namespace {

std::string HomeFolder() {
    const char* home = getenv("HOME");
    if (home && *home == '/') return home;
    const passwd* user = getpwuid(getuid());
    return user && user->pw_dir ? user->pw_dir : "/";
}

}  // namespace

std::string UserFolder(const char* variable, const char* belowHome) {
    const char* folder = getenv(variable);
    if (folder && *folder == '/') return AbsolutePath(folder);
    return AbsolutePath(HomeFolder() + "/" + belowHome);
}

std::string OwnBundle() {
    std::string path(PATH_MAX, '\0');
    const CFURLRef url = CFBundleCopyBundleURL(CFBundleGetMainBundle());
    const CFStringRef text = CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle);
    const bool told = CFStringGetCString(text, path.data(), PATH_MAX, kCFStringEncodingUTF8);
    CFRelease(text);
    CFRelease(url);
    return told ? path.c_str() : "/";
}

std::string FolderOf(const std::string& path) {
    return fs::path(path).parent_path();
}

std::string AbsolutePath(const std::string& path) {
    std::string absolute = fs::absolute(path).lexically_normal();
    while (absolute.size() > 1 && absolute.back() == '/') absolute.pop_back();
    return absolute;
}

std::optional<std::string> FindBundle(const std::string& fileName, const std::string& firstFolder) {
    const std::string installed = "/lib/schedulehelper";  // below the prefix that this program's bin folder lies in
    for (const std::string& folder :
         {firstFolder, FolderOf(firstFolder) + installed, std::string("/opt"), "/usr/local" + installed,
          std::string("/usr/local/lib"), "/usr" + installed, std::string("/usr/lib")}) {
        std::error_code ignored;
        const fs::path path = fs::path(folder) / fileName;
        if (fs::is_directory(path, ignored)) return path.string();
    }
    return {};
}

bool HasZoneTable(const std::string& zone) {
    std::array<char, 4> magic{};
    std::ifstream(fs::path("/usr/share/zoneinfo") / zone, std::ios::binary).read(magic.data(), magic.size());
    return std::string_view(magic.data(), magic.size()) == "TZif";
}

}  // namespace tools
