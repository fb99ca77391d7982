// Test seam: what a desktop would answer. Linux's answers are the empty ones.
#pragma once

#include <Carbon/Processes.h>
#include <Foundation/NSDictionary.h>

#include <functional>
#include <string>
#include <vector>

namespace platform {

struct Desktop {
    std::vector<NSDictionary> services;     // of the registry
    std::vector<ProcessInfoRec> processes;  // in the order of the walk
    std::function<bool(const std::string&path)> select, open;
};

// From now on, for every thread.
void SetDesktop(Desktop desktop);

}  // namespace platform
