#include "SystemVersion.h"

#include <Carbon/Carbon.h>

#include <atomic>

namespace {

std::atomic<int> versionMajor{10};
std::atomic<int> versionMinor{15};

}  // namespace

namespace platform {

void SetSystemVersion(int major, int minor) {
    versionMajor = major;
    versionMinor = minor;
}

}  // namespace platform

OSErr Gestalt(OSType selector, SInt32* response) {
    if (!response) return paramErr;
    switch (selector) {
    case gestaltSystemVersionMajor:
        *response = versionMajor;
        return noErr;
    case gestaltSystemVersionMinor:
        *response = versionMinor;
        return noErr;
    default:
        return gestaltUndefSelectorErr;
    }
}
