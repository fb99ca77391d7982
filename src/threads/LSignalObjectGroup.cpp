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

std::span<pollfd> LSignalObjectGroup::ListMembers(pollfd* places) const {
    size_t used = 0;
    for (int descriptor = 0; descriptor <= highest; descriptor++)
        if (FD_ISSET(descriptor, &descriptors)) places[used++] = {descriptor, POLLIN, 0};
    return {places, used};
}

bool LSignalObjectGroup::Select(unsigned int timeoutMs) const {
    pollfd places[kMaxCount];
    return LPoll(ListMembers(places), timeoutMs) > 0;
}

int LSignalObjectGroup::SelectReady(LSignalObjectRef beside, unsigned int timeoutMs) {
    pollfd places[1 + kMaxCount] = {LPollFor(beside)};
    const std::span<pollfd> members = ListMembers(places + 1);
    const int ready = LPoll({places, 1 + members.size()}, timeoutMs);
    if (ready < 0) return ready;
    for (const pollfd& member : members)
        if (!member.revents) FD_CLR(member.fd, &descriptors);
    return ready;
}
