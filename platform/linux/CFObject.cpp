#include "CFObject.h"

CFAllocatorRef CFAllocatorGetDefault() {
    return kCFAllocatorDefault;
}

CFTypeRef CFRetain(CFTypeRef object) {
    if (object) static_cast<const platform::CFHeader*>(object)->references.fetch_add(1, std::memory_order_relaxed);
    return object;
}

void CFRelease(CFTypeRef object) {
    if (!object) return;
    const auto* header = static_cast<const platform::CFHeader*>(object);
    if (header->references.fetch_sub(1, std::memory_order_acq_rel) == 1) header->destroy(object);
}
