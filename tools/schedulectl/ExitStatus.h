// How schedulectl ends.
#pragma once

namespace tools {

enum ExitStatus : int {
    exitDone = 0,
    exitFailure =
        1,          // the helper took the request, but the store doesn't show it; a damaged store; doctor found faults
    exitUsage = 2,  // a word on the command line, or a line of an imported file, is wrong
    exitNotFound = 3,     // no such schedule, no such application
    exitUnreachable = 4,  // no helper, or one that doesn't answer
    exitRefused = 5,      // the helper's answer is no, or it gives this sender none; a stop just before a start
};

}  // namespace tools
