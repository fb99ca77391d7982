// LCFReference<Ref>: owns one Core Foundation reference, null when empty. The base of the wrappers LCFString, LCFURL
// and LCFBundle. Moves nothing and copies nothing: who needs the object longer retains it. One thread at a time.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

template <class Ref>
class LCFReference {
public:
    LCFReference() = default;
    explicit LCFReference(Ref adopted) : ref(adopted) {}  // takes over the caller's reference
    ~LCFReference() { CFRelease(ref); }
    LCFReference(const LCFReference&) = delete;
    LCFReference& operator=(const LCFReference&) = delete;

    Ref Get() const { return ref; }  // lives as long as it is held here

    // Holds another reference, taken over from the caller; the old one is released.
    void Adopt(Ref adopted) {
        const Ref old = ref;
        ref = adopted;
        CFRelease(old);
    }

private:
    Ref ref = nullptr;
};
