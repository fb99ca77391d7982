// ProbeApplication: an application bundle of one test, whose program reports how it was started and then stays until it
// is ended. Owned by the test; ends all that it heard from.
#pragma once

#include "support/TempFolder.h"

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

class ProbeApplication {
public:
    // `moreOfPlist`: further entries of the Info.plist's dictionary, as XML.
    ProbeApplication(const std::string& identifier, const std::string& moreOfPlist = "",
                     const std::string& programFolder = "Linux");
    ~ProbeApplication();
    ProbeApplication(const ProbeApplication&) = delete;
    ProbeApplication& operator=(const ProbeApplication&) = delete;

    std::string Bundle() const { return folder.Join("Probe.app"); }
    std::string Program() const { return Bundle() + "/Contents/" + place + "/probe"; }
    const TempFolder& Folder() const { return folder; }

    // Waits for a started program's report, line by line: name to value.
    std::map<std::string, std::string> Report();
    // Ends a program and waits until no trace of it is left.
    void End(pid_t pid);

private:
    const TempFolder folder;
    const std::string place;
    std::vector<pid_t> started;
};
