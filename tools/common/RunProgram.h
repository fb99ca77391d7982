// RunProgram: another program as a part of a command: run to its end, its output read line by line. Blocks; any thread.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tools {

// Runs words[0], looked for in PATH, with standard input from the null device and the caller's standard error. Each
// line of its standard output, without its end, goes to `line`; where that gives false, the program is ended. Without
// `line` the output is dropped. Gives the exit status; -1 when there is no such program or it ended by a signal.
int RunProgram(const std::vector<std::string>& words, const std::function<bool(const std::string&)>& line = {});

}  // namespace tools
