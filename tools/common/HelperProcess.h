// HelperProcess: the helper that works on this user's store, as a process. Main thread.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <sys/types.h>

namespace tools {

struct HelperProcess {
    pid_t pid = 0;     // 0: one holds the store, but the system doesn't tell which
    time_t since = 0;  // when it was started; 0: unknown
};

// Nothing when none runs.
std::optional<HelperProcess> FindHelper();

// A variable of the environment that the helper was started with; nothing when it has none or it can't be told.
std::optional<std::string> HelperVariable(const HelperProcess& helper, const std::string& name);

// The helper's bundle: beside this program's own, or where programs are installed.
std::optional<std::string> FindHelperBundle();

// Waits until a helper has loaded the schedules: it holds its store before it has read it, and drops the schedules of
// an application that it doesn't find then. It answers once that is over. False: none did within `timeoutMs`.
bool AwaitLoaded(uint32_t timeoutMs);

// Asks the helper to end (SIGTERM; one whose number isn't known through its service) and waits until it has let go of
// the store. False: it is still there after `timeoutMs`.
bool EndHelper(const HelperProcess& helper, uint32_t timeoutMs);

// Starts a helper, through systemd where its unit is installed, and waits until it has loaded the schedules. What was
// done, as a sentence; "" when none had within `timeoutMs`.
std::string StartHelper(uint32_t timeoutMs);

// Ends this helper and starts another one, as the same unit where systemd runs it. What was done, as a sentence; ""
// when the old one doesn't end or no new one comes within `timeoutMs`.
std::string RestartHelper(const HelperProcess& helper, uint32_t timeoutMs);

}  // namespace tools
