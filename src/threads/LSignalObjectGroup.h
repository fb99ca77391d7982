// LSignalObjectGroup: up to 256 signal objects for one wait. It doesn't own them; they must outlive every wait. Waits
// of several threads on one group are safe as long as nobody adds to it.
#pragma once

#include "threads/LSignalObject.h"

class LSignalObjectGroup {
public:
    LSignalObjectGroup();

    // The 257th addition does nothing, nor does one whose descriptor the set has no room for (below 0, above 1,023). An
    // object added twice takes two places.
    void Add(LSignalObjectRef object);
    void Add(LSignalObjectGroup& group);

    // True when at least one member is set within the time-out. False also for a wait that was interrupted or failed.
    bool Select(unsigned int timeoutMs) const;
    bool IsSignaled() const { return Select(0); }

    // Waits for the members and one object beside them, which needs no place. Afterwards the group holds only those
    // members that are set, while their places stay taken. How many are set; 0 after the time-out; -1 when the wait was
    // interrupted or failed, which changes nothing.
    int SelectReady(LSignalObjectRef beside, unsigned int timeoutMs);

    int Count() const { return count; }
    // Calls `f` with each member's descriptor, one that was added twice once.
    template <class F>
    void ForEachDescriptor(F f) const {
        for (int descriptor = 0; descriptor <= highest; descriptor++)
            if (FD_ISSET(descriptor, &descriptors)) f(descriptor);
    }

private:
    void AddDescriptor(int descriptor);
    std::span<pollfd> ListMembers(pollfd* places) const;

    static constexpr int kMaxCount = 256;

    fd_set descriptors;
    int highest = -1;
    int count = 0;
};
