#include "threads/LSignalObjectGroup.h"

LSignalObjectGroup::LSignalObjectGroup() {
    FD_ZERO(&descriptors);
}

void LSignalObjectGroup::Add(LSignalObjectRef object) {
    AddDescriptor(object.ReadDescriptor());
}

void LSignalObjectGroup::Add(LSignalObjectGroup& group) {
    const LSignalObjectGroup other = group;  // it may be this one
    for (int descriptor = 0; descriptor <= other.highest && count < kMaxCount; descriptor++)
        if (FD_ISSET(descriptor, &other.descriptors)) AddDescriptor(descriptor);
}

void LSignalObjectGroup::AddDescriptor(int descriptor) {
    if (count >= kMaxCount || descriptor < 0 || descriptor >= FD_SETSIZE) return;
    FD_SET(descriptor, &descriptors);
    if (descriptor > highest) highest = descriptor;
    count++;
}

bool LSignalObjectGroup::Select(unsigned int timeoutMs) const {
    fd_set waited = descriptors;
    timeval timeout{static_cast<time_t>(timeoutMs / 1000), static_cast<suseconds_t>(timeoutMs % 1000) * 1000};
    return ::select(highest + 1, &waited, nullptr, nullptr, timeoutMs == kSignalNoTimeOut ? nullptr : &timeout) > 0;
}
