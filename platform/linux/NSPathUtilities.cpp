#include "Guarded.h"
#include "HomeFolder.h"
#include "UserDirs.h"

#include <Foundation/Foundation.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <utility>

namespace platform {
namespace {

Guarded<std::string>& ApplicationsFolder() {
    static auto& folder = *new Guarded<std::string>("/opt");
    return folder;
}

// Makes a folder and those above it; those that are there stay as they are.
void MakeFolders(const std::string& path) {
    if (path.empty() || ::mkdir(path.c_str(), 0700) == 0 || errno != ENOENT) return;
    MakeFolders(path.substr(0, path.rfind('/')));
    ::mkdir(path.c_str(), 0700);
}

const char* UserDirName(unsigned directory) {
    switch (directory) {
    case NSDocumentDirectory:
        return "XDG_DOCUMENTS_DIR";
    case NSDesktopDirectory:
        return "XDG_DESKTOP_DIR";
    case NSDownloadsDirectory:
        return "XDG_DOWNLOAD_DIR";
    case NSMoviesDirectory:
        return "XDG_VIDEOS_DIR";
    case NSMusicDirectory:
        return "XDG_MUSIC_DIR";
    case NSPicturesDirectory:
        return "XDG_PICTURES_DIR";
    default:
        return nullptr;
    }
}

std::optional<std::string> UserFolder(unsigned directory) {
    if (directory == NSCachesDirectory) return FolderFromEnvironment("XDG_CACHE_HOME", ".cache");
    if (directory == NSApplicationSupportDirectory) return FolderFromEnvironment("XDG_DATA_HOME", ".local/share");
    const char* const name = UserDirName(directory);
    if (!name) return std::nullopt;
    std::ostringstream text;
    text << std::ifstream(FolderFromEnvironment("XDG_CONFIG_HOME", ".config") + "/user-dirs.dirs").rdbuf();
    return FindUserDir(text.str(), name, HomeFolder());
}

std::string_view WithoutSlashes(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
    return path;
}

// The text of a quoted value; nothing when the closing quote is missing.
std::optional<std::string> Unquote(std::string_view text) {
    std::string plain;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] == '"') return plain;
        if (text[i] == '\\' && i + 1 < text.size()) i++;
        plain += text[i];
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> FindUserDir(std::string_view text, std::string_view name, const std::string& home) {
    constexpr std::string_view kHome = "$HOME";
    std::optional<std::string> found;
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        const std::string start = std::string(name) + "=\"";
        if (!line.starts_with(start)) continue;
        line.remove_prefix(start.size());
        const bool isBelowHome = line.starts_with(kHome) && line.substr(kHome.size()).find_first_of("/\"") == 0;
        if (isBelowHome) line.remove_prefix(kHome.size());
        const auto value = Unquote(line);
        if (!value || (!isBelowHome && !value->starts_with('/'))) continue;
        found = WithoutSlashes(isBelowHome ? std::string(WithoutSlashes(home)) + *value : *value);
    }
    if (found && *found == WithoutSlashes(home)) return std::nullopt;
    return found;
}

void SetApplicationsFolder(std::string path) {
    ApplicationsFolder().Set(std::move(path));
}

}  // namespace platform

using namespace platform;

NSArray NSSearchPathForDirectoriesInDomains(unsigned directory, unsigned domainMask, bool) {
    NSMutableArray paths;
    if (domainMask & NSUserDomainMask) {
        if (const auto folder = UserFolder(directory)) {
            MakeFolders(*folder);
            paths.addObject(NSString(*folder));
        }
    }
    if ((domainMask & NSLocalDomainMask) && directory == NSApplicationDirectory)
        paths.addObject(NSString(ApplicationsFolder().Get()));
    return paths;
}

NSString NSHomeDirectory() {
    return NSString(HomeFolder());
}
