#include "system/LMachine.h"

#include "text/LCFString.h"
#include "text/LStringShort.h"

#include <Carbon/Carbon.h>
#include <Foundation/Foundation.h>
#include <IOKit/IOKitLib.h>

namespace {

#if defined(__x86_64__)
constexpr bool kIsX86_64 = true;
#else
constexpr bool kIsX86_64 = false;
#endif

bool IsOSMacLeopardOrLater() {
    static const bool bIsLeopardOrLater = [] {
        SInt32 major = 0, minor = 0;
        ::Gestalt(gestaltSystemVersionMajor, &major);
        ::Gestalt(gestaltSystemVersionMinor, &minor);
        return LIsVersionLeopardOrLater(major, minor);
    }();
    return bIsLeopardOrLater;
}

}  // namespace

void LMachineGetGPUDescriptions(LStringListTemplate<char>& list) {
    list.Clear();
    const io_iterator_t services = ::IOServiceGetMatchingServices("IOPCIDevice");
    while (const io_object_t service = ::IOIteratorNext(services)) {
        const NSData model = ::IORegistryEntryProperties(service).valueForKey(NSString("model")).Data();
        if (!model) continue;
        const LCFString text(::CFStringCreateWithBytes(kCFAllocatorDefault, static_cast<const UInt8*>(model.bytes()),
                                                       static_cast<CFIndex>(model.length()), kCFStringEncodingUTF8,
                                                       true));
        if (!text.Get()) continue;
        char name[LTextBufferSize];
        text.GetString(name, sizeof name);
        list.AddText(name);
    }
    ::IOObjectRelease(services);
}

bool LIsVersionLeopardOrLater(int major, int minor) {
    return major > 10 || (major == 10 && minor > 4);
}

bool LIsOS64Bit() {
    return IsOSMacLeopardOrLater() && kIsX86_64;
}
