#include "HelperStarter.h"

#include "common/Folders.h"
#include "common/ScheduleStore.h"

#include <AppKit/AppKit.h>
#include <dispatch/pump.h>

#include <array>
#include <chrono>
#include <iostream>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tools {

namespace {

using Milliseconds = std::chrono::milliseconds;
using Moment = std::chrono::steady_clock::time_point;

constexpr const char* unitName = "schedulehelper.service";
constexpr uint32_t lookAgainMs = 20;

uint32_t RemainingMs(Moment deadline) {
    const auto left = std::chrono::duration_cast<Milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    return left > 0 ? static_cast<uint32_t>(left) : 0;
}

bool IsUserUnitInstalled() {
    const std::array folders = {UserFolder("XDG_CONFIG_HOME", ".config") + "/systemd/user",
                                UserFolder("XDG_DATA_HOME", ".local/share") + "/systemd/user",
                                std::string("/etc/systemd/user"), std::string("/usr/local/lib/systemd/user"),
                                std::string("/usr/lib/systemd/user")};
    for (const std::string& folder : folders)
        if (access((folder + "/" + unitName).c_str(), F_OK) == 0) return true;
    return false;
}

// False also where there is no systemctl, or no systemd that serves this user.
bool StartUserUnit() {
    std::array arguments = {std::string("systemctl"), std::string("--user"), std::string("--quiet"),
                            std::string("start"), std::string(unitName)};
    std::array<char*, arguments.size() + 1> argv{};
    for (size_t i = 0; i < arguments.size(); ++i) argv[i] = arguments[i].data();
    pid_t child = -1;
    int status = -1;
    if (posix_spawnp(&child, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return false;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Whether the connection leads to a helper that works.
std::unique_ptr<HelperClient> ConnectTested(uint32_t timeoutMs) {
    auto client = std::make_unique<HelperClient>();
    if (!client->Connect() || client->Ask(HelperRequest::Test(), timeoutMs) != HelperClient::Answer::Yes) return {};
    return client;
}

}  // namespace

HelperStarter::HelperStarter(std::string bundle) : helperBundle(std::move(bundle)) {}

std::unique_ptr<HelperClient> HelperStarter::Connect(uint32_t timeoutMs) const {
    const Moment deadline = std::chrono::steady_clock::now() + Milliseconds(timeoutMs);
    if (auto client = ConnectTested(timeoutMs)) return client;
    if (!Start()) return {};
    // Nothing tells a client that a service has come to be: it looks.
    for (uint32_t leftMs = RemainingMs(deadline); leftMs > 0; leftMs = RemainingMs(deadline)) {
        if (auto client = ConnectTested(leftMs)) return client;
        dispatch_pump_main({}, lookAgainMs);
    }
    return {};
}

// A helper that runs without serving is started a second time, which makes the first one look again whether Quillo
// runs. Starting a unit that is active does nothing, so only a first start goes through systemd.
bool HelperStarter::Start() const {
    const bool runs = IsHelperRunning(StorePath());
    if (!runs && IsUserUnitInstalled() && StartUserUnit()) {
        std::cout << "started the helper through systemd" << std::endl;
        return true;
    }
    if (!NSWorkspace::sharedWorkspace().launchApplication(NSString(helperBundle))) {
        std::cerr << "Quillo: can't start " << helperBundle << std::endl;
        return false;
    }
    std::cout << (runs ? "started the helper once more, so that it serves" : "started the helper") << std::endl;
    return true;
}

}  // namespace tools
