#include "Desktop.h"

#include "Guarded.h"
#include "MainBundle.h"

#include <AppKit/AppKit.h>
#include <IOKit/IOKitLib.h>

#include <algorithm>

namespace platform {
namespace {

Guarded<Desktop>& TheDesktop() {
    static Guarded<Desktop>& desktop = *new Guarded<Desktop>;
    return desktop;
}

}  // namespace

void SetDesktop(Desktop desktop) {
    TheDesktop().Set(std::move(desktop));
}

}  // namespace platform

struct IOServiceIterator {
    std::vector<NSDictionary> services;
    size_t next = 0;
};

io_iterator_t IOServiceGetMatchingServices(const char*) {
    return new IOServiceIterator{platform::TheDesktop().Get().services};
}

io_object_t IOIteratorNext(io_iterator_t iterator) {
    return iterator->next < iterator->services.size() ? &iterator->services[iterator->next++] : nullptr;
}

const NSDictionary& IORegistryEntryProperties(io_object_t service) {
    return *service;
}

void IOObjectRelease(io_iterator_t iterator) {
    delete iterator;
}

OSStatus GetNextProcess(ProcessSerialNumber* process) {
    const std::vector<ProcessInfoRec> all = platform::TheDesktop().Get().processes;
    auto next = all.begin();
    if (*process != ProcessSerialNumber()) {
        next = std::find_if(all.begin(), all.end(), [&](const auto& one) { return one.processNumber == *process; });
        if (next != all.end()) ++next;
    }
    *process = next == all.end() ? ProcessSerialNumber() : next->processNumber;
    return next == all.end() ? procNotFound : noErr;
}

OSStatus GetProcessInformation(const ProcessSerialNumber* process, ProcessInfoRec* information) {
    for (const ProcessInfoRec& one : platform::TheDesktop().Get().processes) {
        if (one.processNumber != *process) continue;
        *information = one;
        return noErr;
    }
    return procNotFound;
}

OSStatus GetProcessBundleLocation(const ProcessSerialNumber* process, FSRef* location) {
    const auto program = platform::ProgramOfLink("/proc/self/exe");
    if (*process != kCurrentProcess || !program) return procNotFound;
    location->path = platform::BundleOfProgram(*program).value_or(*program);
    return noErr;
}

OSStatus LSOpenFSRef(const FSRef* item) {
    const auto open = platform::TheDesktop().Get().open;
    return open && open(item->path) ? noErr : kLSApplicationNotFoundErr;
}

bool NSWorkspace::selectFile(const NSString& path) {
    const auto select = platform::TheDesktop().Get().select;
    return select && select(path.UTF8String());
}
