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
#include <functional>

namespace tools {

namespace {

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

}  // namespace tools
