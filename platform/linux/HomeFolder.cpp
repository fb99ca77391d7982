#include "HomeFolder.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace platform {

std::string HomeFolder() {
    const char* home = std::getenv("HOME");
    if (home && home[0] == '/') return home;
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> texts(16384);
    if (::getpwuid_r(::getuid(), &entry, texts.data(), texts.size(), &found) == 0 && found && found->pw_dir &&
        found->pw_dir[0] == '/')
        return found->pw_dir;
    return "/";
}

std::string FolderFromEnvironment(const char* variable, const char* otherwise) {
    const char* folder = std::getenv(variable);
    if (folder && folder[0] == '/') return folder;
    const std::string home = HomeFolder();
    return home + (home.ends_with('/') ? "" : "/") + otherwise;
}

}  // namespace platform
