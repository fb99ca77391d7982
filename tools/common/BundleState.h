// BundleState: an application's bundle as the helper will find it. Any thread.
#pragma once

#include <string>

namespace tools {

struct BundleState {
    bool isThere = false;         // otherwise the helper drops its schedules when it is started
    std::string identifier;       // what its Info.plist says; "" when it says none
    std::string version;          // its text; "" for none
    bool isRightVersion = false;  // the helper starts no other
    std::string program;          // the program's file; "" when the bundle names none or there is none
    bool isExecutable = false;
};

BundleState LookAtBundle(const std::string& path);

// Why a schedule of this bundle starts nothing, as part of a sentence; "" when it starts.
std::string WhyNotStarted(const BundleState& bundle);

}  // namespace tools
