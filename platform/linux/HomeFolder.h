// The user's home folder: $HOME when it is an absolute path, else the password entry's, else "/". Any thread, as long
// as nobody changes the environment meanwhile.
#pragma once

#include <string>

namespace platform {

std::string HomeFolder();

// What an environment variable names, if that is an absolute path; else `otherwise` below the home folder.
std::string FolderFromEnvironment(const char* variable, const char* otherwise);

}  // namespace platform
