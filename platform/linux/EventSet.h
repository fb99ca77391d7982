// EventSet: one epoll instance with one-shot registrations. An armed registration gives one event to one waiting thread
// and is then disarmed until it is armed again, so that exactly one thread works on a descriptor. Safe from any thread.
//
// The rule that keeps watchers alive: a watcher arms only what isn't armed, counts an armed registration as a reference
// to itself, and is removed only by the thread that holds its event. Changing the interest of an armed registration
// would let a second event out for the one reference; whoever needs two interests in one descriptor uses two sets.
#pragma once

#include "Descriptor.h"

#include <cstdint>
#include <sys/epoll.h>

namespace platform {

class Watcher {
public:
    // The descriptor is ready: `events` are epoll's. Runs outside the exit gate, without any lock.
    virtual void OnReady(uint32_t events) = 0;

protected:
    ~Watcher() = default;
};

class EventSet {
public:
    EventSet();

    // First registration of a descriptor, armed. False (errno) when the kernel has no room.
    bool Add(int fd, uint32_t events, Watcher& watcher) const { return Control(EPOLL_CTL_ADD, fd, events, &watcher); }
    bool Arm(int fd, uint32_t events, Watcher& watcher) const { return Control(EPOLL_CTL_MOD, fd, events, &watcher); }
    void Remove(int fd) const { Control(EPOLL_CTL_DEL, fd, 0, nullptr); }

    // Waits up to timeoutMs (-1: for ever) for one event and gives its watcher; null when none came.
    Watcher* Wait(int timeoutMs, uint32_t& events) const;

    int Fd() const { return ep.Get(); }

private:
    bool Control(int operation, int fd, uint32_t events, Watcher* watcher) const;

    Descriptor ep;
};

}  // namespace platform
