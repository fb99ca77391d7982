#include "HelperProcess.h"

#include "Folders.h"
#include "HelperClient.h"
#include "HelperStarter.h"
#include "ScheduleStore.h"
#include "UserUnit.h"

#include <bsd/processes.h>
#include <dispatch/pump.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>

namespace tools {

namespace {

// A helper that a session started has what its application needs to be seen, which the one who restarts it may lack.
void TakeEnvironmentOf(const HelperProcess& helper) {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "XDG_SESSION_ID", "XDG_SESSION_TYPE",
                             "XDG_CURRENT_DESKTOP", "DBUS_SESSION_BUS_ADDRESS", "LANG", "TZ", "PATH"})
        if (const auto value = HelperVariable(helper, name)) setenv(name, value->c_str(), 1);
}

constexpr const char* helperBundleName = "schedulehelper.app";

// A lock that is let go of tells nobody: it is looked at.
bool AwaitLook(const std::function<bool()>& isSo, uint32_t timeoutMs) {
    constexpr uint32_t lookAgainMs = 20;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!isSo()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        dispatch_pump_main({}, lookAgainMs);
    }
    return true;
}

}  // namespace

std::optional<HelperProcess> FindHelper() {
    const std::string store = StorePath();
    if (!IsHelperRunning(store)) return {};
    HelperProcess helper;
    helper.pid = flock_holder((store + ".lock").c_str());
    if (helper.pid > 0) helper.since = process_start_time(helper.pid);
    return helper;
}

std::optional<std::string> HelperVariable(const HelperProcess& helper, const std::string& name) {
    if (helper.pid <= 0) return {};
    for (const std::string& variable : process_environment(helper.pid))
        if (variable.starts_with(name + "=")) return variable.substr(name.size() + 1);
    return {};
}

std::optional<std::string> FindHelperBundle() {
    return FindBundle(helperBundleName, OwnBundle());
}

bool EndHelper(const HelperProcess& helper, uint32_t timeoutMs) {
    if (helper.pid > 0)
        kill(helper.pid, SIGTERM);
    else if (HelperClient client; client.Connect())
        client.TellToQuit(timeoutMs);
    return AwaitLook([] { return !IsHelperRunning(StorePath()); }, timeoutMs);
}

std::string StartHelper(uint32_t timeoutMs) {
    const std::optional<std::string> bundle = FindHelperBundle();
    std::string what = HelperStarter(bundle.value_or("/")).Start();
    if (what.empty() || !AwaitLook([] { return IsHelperRunning(StorePath()); }, timeoutMs)) return "";
    return what;
}

// systemd restarts its unit by itself: a start that comes before it has noticed the end would find the unit active.
std::string RestartHelper(const HelperProcess& helper, uint32_t timeoutMs) {
    if (IsUserUnitActive() && RestartUserUnit()) {
        const auto isAnother = [&] {
            const auto now = FindHelper();
            return now && (now->pid != helper.pid || now->pid == 0);
        };
        return AwaitLook(isAnother, timeoutMs) ? "restarted the helper through systemd" : "";
    }
    TakeEnvironmentOf(helper);
    return EndHelper(helper, timeoutMs) ? StartHelper(timeoutMs) : "";
}

}  // namespace tools
