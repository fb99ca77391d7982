// schedulectl: the schedule helper from the command line.
#include "CommandLine.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

// What is closed would be the next file's or connection's number, which messages would go to. Reading only: writing to
// it fails, as it should.
static void FillStandardDescriptors() {
    for (int number = 0; number <= STDERR_FILENO; number++)
        if (fcntl(number, F_GETFD) < 0) open("/dev/null", O_RDONLY);
}

int main(int argc, char** argv) {
    FillStandardDescriptors();
    tools::Options options;
    const tools::ParsedCommand command = tools::ParseCommandLine(argc, argv, options);
    const int status = command.run ? command.run(options) : command.status;
    // An export onto a full disk is no copy.
    if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return status;
    std::fprintf(stderr, "schedulectl: what it says can't be written: %s\n", std::strerror(errno));
    return status == tools::exitDone ? tools::exitFailure : status;
}
