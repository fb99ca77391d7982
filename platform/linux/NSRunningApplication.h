// Which applications run: the processes of this user, seen through /proc, and the bundles that they belong to. Any
// thread.
#pragma once

#include <AppKit/AppKit.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// The program file that a process runs; for a script the script, if the interpreter that runs is the one that its first
// line names (an editor that shows the script does not run it). Nothing for zombies and for processes that may not be
// looked at.
std::optional<std::string> ProgramOfProcess(const std::string& processFolder);

// Test seam: answers NSRunningApplication's question from now on (null: the system again).
using RunningApplicationList = std::function<std::vector<NSRunningApplication>(const NSString& bundleIdentifier)>;
void SetRunningApplications(RunningApplicationList list);

}  // namespace platform
