// schedulectl: the schedule helper from the command line.
#include "CommandLine.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    tools::Options options;
    const tools::ParsedCommand command = tools::ParseCommandLine(argc, argv, options);
    const int status = command.run ? command.run(options) : command.status;
    // An export onto a full disk is no copy.
    if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return status;
    std::fprintf(stderr, "schedulectl: what it says can't be written: %s\n", std::strerror(errno));
    return status == tools::exitDone ? tools::exitFailure : status;
}
