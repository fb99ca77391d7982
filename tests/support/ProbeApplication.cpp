#include "support/ProbeApplication.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <stdexcept>
#include <sys/stat.h>

ProbeApplication::ProbeApplication(const std::string& identifier, const std::string& moreOfPlist,
                                   const std::string& programFolder)
    : place(programFolder) {
    folder.Write("Probe.app/Contents/Info.plist",
                 "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" + identifier +
                     "</string><key>CFBundleExecutable</key><string>probe</string>" + moreOfPlist + "</dict></plist>");
    folder.MakeFolder("Probe.app/Contents/" + place);
    std::filesystem::copy_file(PROBE_PROGRAM, Program());
    if (::mkfifo(folder.Join("report").c_str(), 0600) != 0) throw std::runtime_error("mkfifo");
}

ProbeApplication::~ProbeApplication() {
    for (const pid_t pid : std::vector(started)) End(pid);
}

std::map<std::string, std::string> ProbeApplication::Report() {
    std::ifstream pipe(folder.Join("report"));
    std::map<std::string, std::string> report;
    for (std::string line; std::getline(pipe, line);) {
        const size_t colon = line.find(':');
        const size_t value = std::min(line.find_first_not_of(" \t", colon + 1), line.size());
        report[line.substr(0, colon)] = line.substr(value);
    }
    started.push_back(std::stoi(report["pid"]));
    return report;
}

void ProbeApplication::End(pid_t pid) {
    ::kill(pid, SIGKILL);
    while (::kill(pid, 0) == 0) ::sched_yield();  // a zombie still counts: it must be reaped
    std::erase(started, pid);
}
