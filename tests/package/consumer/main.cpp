// A program of somebody else: uses each of the three libraries, and through the lowest the one that they stand on.
//   consumer BUNDLE    prints "<file name without extension> <version> <seconds of lead>" of an application
#include "app/LScheduleHelperKeys.h"
#include "files/LFile.h"
#include "text/LCopyBounded.h"
#include "text/LPrintf.h"

#include <Foundation/Foundation.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    char name[LTextBufferSize], line[LTextBufferSize];
    LFile::_GetFileNameFromPath(name, argv[1]);
    const NSDictionary info =
        NSDictionary::dictionaryWithContentsOfFile(NSString(std::string(argv[1]) + "/Contents/Info.plist"));
    const NSString version = info.valueForKey(NSString("CFBundleVersion")).String();
    if (!version || LScheduleHelperKeys().empty()) return 1;
    tplsnprintf(line, sizeof line, "%s %s %d", name, version.UTF8String(), static_cast<int>(kLaunchLeadSeconds));
    std::puts(line);
    return 0;
}
