// The desktop's record of where a user keeps documents, music and so on: $XDG_CONFIG_HOME/user-dirs.dirs.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

// The folder that a text of that file's form gives for a name ("XDG_MUSIC_DIR"): lines NAME="$HOME/folder" or
// NAME="/folder", a back slash before each of " \ $ `; of several lines the last one counts. Nothing when there is
// none, when it is of another form, and for the home folder itself, which says that the user wants no such folder.
std::optional<std::string> FindUserDir(std::string_view text, std::string_view name, const std::string& home);

// Test seam: where applications for all users are, instead of /opt.
void SetApplicationsFolder(std::string path);

}  // namespace platform
