// What the kernel says of one process.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

struct ProcessStat {
    std::string_view name;  // at most 15 characters; may hold anything but NUL
    bool isProgram;         // neither the kernel's own nor ended
    uint64_t startTicks;    // of sysconf(_SC_CLK_TCK) a second, since the machine's start
};

// A line of /proc/<number>/stat: "number (name) state ...", the seventh field behind the name holding the flags, the
// twentieth the start. The view is of the line. Nothing for what is none.
std::optional<ProcessStat> ParseProcessStat(std::string_view line);

}  // namespace platform
