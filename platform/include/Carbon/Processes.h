// The Process Manager and Launch Services, the subset that this system calls. What a desktop would know isn't known
// here: there are no processes to walk, and nothing opens. Any thread.
#pragma once

#include <Carbon/Carbon.h>

inline constexpr OSStatus procNotFound = -600;
inline constexpr OSStatus kLSApplicationNotFoundErr = -10814;

struct ProcessSerialNumber {
    uint32_t highLongOfPSN = 0;
    uint32_t lowLongOfPSN = 0;
    friend bool operator==(const ProcessSerialNumber&, const ProcessSerialNumber&) = default;
};
inline constexpr ProcessSerialNumber kCurrentProcess{0, 2};

struct ProcessInfoRec {
    ProcessSerialNumber processNumber;
    OSType processType;
    OSType processSignature;
};

// The process behind that one, {0, 0} being in front of the first; procNotFound, and {0, 0}, behind the last.
OSStatus GetNextProcess(ProcessSerialNumber* process);
OSStatus GetProcessInformation(const ProcessSerialNumber* process, ProcessInfoRec* information);
// The bundle of a process, or its program where that has none. Only the current one's is known.
OSStatus GetProcessBundleLocation(const ProcessSerialNumber* process, FSRef* location);
OSStatus LSOpenFSRef(const FSRef* item);
