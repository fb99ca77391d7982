// What schedulectl does: one function per command. Each writes its answer to standard output and what went wrong to
// standard error, and gives the program's exit status. Main thread only.
#pragma once

#include "common/NewSchedule.h"

#include <cstdint>
#include <string>

namespace tools {

enum ExitStatus : int {
    exitDone = 0,
    exitFailure = 1,      // the helper took the request, but the store doesn't show it; a damaged store
    exitUsage = 2,        // a word on the command line is wrong
    exitNotFound = 3,     // no such schedule, no such application
    exitUnreachable = 4,  // no helper, or one that doesn't answer
    exitRefused = 5,      // the helper's answer is no, or it gives this sender none
};

struct Options {
    bool json = false;
    uint32_t timeoutMs = 5000;
    ScheduleWords schedule;  // of delete only the name
    std::string appPath;     // "": the one that is installed
    std::string bundleId;
};

int RunTest(const Options& options);
int RunHandshake(const Options& options);
int RunAdd(const Options& options);
int RunDelete(const Options& options);
int RunDeleteAll(const Options& options);
int RunList(const Options& options);
int RunMayQuit(const Options& options);
int RunQuit(const Options& options);

}  // namespace tools
