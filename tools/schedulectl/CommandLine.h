// The command line: which commands there are, what they take, and what of that the shells complete. Main thread.
#pragma once

#include "Commands.h"

#include <optional>

namespace tools {

// The words of the command line into `options`; gives the function of the command, or, after a fault or a call for
// help, which have been told, the status to end with.
struct ParsedCommand {
    int (*run)(const Options&) = nullptr;
    int status = 0;  // without `run`
};
ParsedCommand ParseCommandLine(int argc, char** argv, Options& options);

}  // namespace tools
