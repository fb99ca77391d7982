#include "HelperProcess.h"

#include "Folders.h"
#include "HelperClient.h"
#include "HelperStarter.h"
#include "ScheduleStore.h"
#include "SingleInstance.h"
#include "UserUnit.h"

#include <bsd/processes.h>
#include <dispatch/pump.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <vector>

namespace tools {

namespace {

bool IsSet(const char* name) {
    const char* const value = std::getenv(name);
    return value && *value;
}

// A helper that a session started has what its application needs to be seen, which the one who restarts it may lack. A
// display or zone of one's own goes first: a restart is what brings the helper to those of a new session. One that is
// forwarded ends with its connection.
void TakeEnvironmentOf(const HelperProcess& helper) {
    std::vector<const char*> names = {"DBUS_SESSION_BUS_ADDRESS", "LANG", "PATH"};
    if (IsSet("SSH_CONNECTION") || !(IsSet("DISPLAY") || IsSet("WAYLAND_DISPLAY")))
        names.insert(names.end(), {"DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "XDG_SESSION_ID", "XDG_SESSION_TYPE",
                                   "XDG_CURRENT_DESKTOP"});
    if (!IsSet("TZ")) names.push_back("TZ");
    for (const char* name : names)
        if (const auto value = HelperVariable(helper, name)) setenv(name, value->c_str(), 1);
}

constexpr const char* helperBundleName = "schedulehelper.app";
constexpr uint32_t lookAgainMs = 20;

// A lock that is let go of tells nobody: it is looked at.
bool AwaitLook(const std::function<bool()>& isSo, uint32_t timeoutMs) {
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

bool AwaitLoaded(uint32_t timeoutMs) {
    const platform::SingleInstance helper(StorePath());
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const auto left = deadline - std::chrono::steady_clock::now();
        const auto leftMs = std::chrono::ceil<std::chrono::milliseconds>(left).count();
        if (leftMs <= 0) return false;
        if (helper.AskToReopen(static_cast<uint32_t>(leftMs))) return true;
    }
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
    return what.empty() || !AwaitLoaded(timeoutMs) ? "" : what;
}

// systemd restarts its unit by itself: a start that comes before it has noticed the end would find the unit active.
std::string RestartHelper(const HelperProcess& helper, uint32_t timeoutMs) {
    if (IsUserUnitActive() && RestartUserUnit()) {
        const auto isAnother = [&] {
            const auto now = FindHelper();
            return now && (now->pid != helper.pid || now->pid == 0);
        };
        return AwaitLook(isAnother, timeoutMs) && AwaitLoaded(timeoutMs) ? "restarted the helper through systemd" : "";
    }
    TakeEnvironmentOf(helper);
    if (EndHelper(helper, timeoutMs)) return StartHelper(timeoutMs);
    // It was asked to end and would later, with nobody to start it again. The store is whole whenever it ends.
    const auto hung = FindHelper();
    if (hung && (hung->pid <= 0 || hung->pid != helper.pid)) return "";
    if (hung) kill(hung->pid, SIGKILL);
    return AwaitLook([] { return !IsHelperRunning(StorePath()); }, timeoutMs) ? StartHelper(timeoutMs) : "";
}

}  // namespace tools
