// schedulectl: the schedule helper from the command line.
#include "CommandLine.h"

int main(int argc, char** argv) {
    tools::Options options;
    const tools::ParsedCommand command = tools::ParseCommandLine(argc, argv, options);
    return command.run ? command.run(options) : command.status;
}
