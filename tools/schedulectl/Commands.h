// What schedulectl does: one function per command. Each writes its answer to standard output and what went wrong to
// standard error, and gives the program's exit status. Main thread only.
#pragma once

#include "Output.h"
#include "common/NewSchedule.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tools {

// The words of the command line; each command reads its own.
struct Options {
    OutputStyle style;
    uint32_t timeoutMs = 5000;
    ScheduleWords schedule;
    std::vector<std::string> names;
    std::string appPath;   // "": the one that is installed; for what is stored already: any
    std::string bundleId;  // "": the main application's; for what is stored already: any
    bool all = false;
    bool dryRun = false;
    bool force = false;
    bool dropMissing = false;
    bool skipRefused = false;
    bool namesOnly = false;
    bool follow = false;
    uint32_t lines = 0;
    std::string file = "-";
    std::string format;  // json, ical; "": by the file's name
    std::string span;    // a duration
    std::string zone;    // "": the machine's
    std::vector<std::string> sleeps;
    std::string restart;  // a time of day
    std::string shell;
};

int RunList(const Options& options);
int RunNext(const Options& options);
int RunShow(const Options& options);
int RunWatch(const Options& options);

int RunAdd(const Options& options);
int RunDelete(const Options& options);
int RunImport(const Options& options);
int RunExport(const Options& options);

int RunDoctor(const Options& options);
int RunSimulate(const Options& options);

int RunStatus(const Options& options);
int RunStart(const Options& options);
int RunStop(const Options& options);
int RunRestart(const Options& options);
int RunLog(const Options& options);

int RunTest(const Options& options);
int RunHandshake(const Options& options);
int RunMayQuit(const Options& options);
int RunQuit(const Options& options);

}  // namespace tools
