#include "UserUnit.h"

#include "Folders.h"
#include "RunProgram.h"

#include <array>
#include <unistd.h>

namespace tools {

bool IsUserUnitInstalled() {
    const std::array folders = {UserFolder("XDG_CONFIG_HOME", ".config") + "/systemd/user",
                                UserFolder("XDG_DATA_HOME", ".local/share") + "/systemd/user",
                                std::string("/etc/systemd/user"), std::string("/usr/local/lib/systemd/user"),
                                std::string("/usr/lib/systemd/user")};
    for (const std::string& folder : folders)
        if (access((folder + "/" + kUserUnit).c_str(), F_OK) == 0) return true;
    return false;
}

bool IsUserUnitActive() {
    return IsUserUnitInstalled() && RunProgram({"systemctl", "--user", "--quiet", "is-active", kUserUnit}) == 0;
}

bool StartUserUnit() {
    return RunProgram({"systemctl", "--user", "--quiet", "start", kUserUnit}) == 0;
}

bool RestartUserUnit() {
    return RunProgram({"systemctl", "--user", "--quiet", "restart", kUserUnit}) == 0;
}

}  // namespace tools
