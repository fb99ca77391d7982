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

int LSignalObjectGroup::SelectReady(LSignalObjectRef beside, unsigned int timeoutMs) {
    pollfd waited[kMaxCount + 1] = {LPollFor(beside)};
    size_t used = 1;
    for (int descriptor = 0; descriptor <= highest; descriptor++)
        if (FD_ISSET(descriptor, &descriptors)) waited[used++] = {descriptor, POLLIN, 0};
    const int ready = LPoll({waited, used}, timeoutMs);
    if (ready < 0) return ready;
    for (const pollfd& one : std::span(waited + 1, used - 1))
        if (!one.revents) FD_CLR(one.fd, &descriptors);
    return ready;
}
