// EventSet: one epoll instance. Safe from any thread. Three ways to be registered:
//
// One-shot, for sets that several threads wait on: an armed registration gives one event to one thread and is disarmed
// until it is armed again, so that exactly one thread works on a descriptor. The watcher arms only what isn't armed,
// counts an armed registration as a reference to itself, and is removed only by the thread that holds its event.
//
// Lasting, for watchers that live as long as the set: at each level (for a set with one waiting thread) or at each
// edge.
//
// By number, at each edge: an event is only a hint, may come late and to several threads at once, and whom it is about
// may be gone. So it names no object but a number, which the one NumberedWatcher of the process looks up. No system
// call arms it anew, and closing the descriptor is all it takes to end it.
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

class NumberedWatcher {
public:
    virtual void OnReady(uintptr_t number, uint32_t events) = 0;

protected:
    ~NumberedWatcher() = default;
};

class EventSet {
public:
    EventSet();

    // An event that was waited for; false when none came.
    class Ready {
    public:
        explicit operator bool() const { return target != 0; }
        void Handle() const;

    private:
        friend class EventSet;
        uint64_t target = 0;
        uint32_t events = 0;
    };

    // First registration of a descriptor, armed. False (errno) when the kernel has no room.
    bool Add(int fd, uint32_t events, Watcher& watcher) const {
        return Control(EPOLL_CTL_ADD, fd, events | EPOLLONESHOT, Target(watcher));
    }
    bool Arm(int fd, uint32_t events, Watcher& watcher) const {
        return Control(EPOLL_CTL_MOD, fd, events | EPOLLONESHOT, Target(watcher));
    }
    // Lasting, at each level; with EPOLLET among the events at each edge.
    bool AddLasting(int fd, uint32_t events, Watcher& watcher) const {
        return Control(EPOLL_CTL_ADD, fd, events, Target(watcher));
    }
    bool ChangeLasting(int fd, uint32_t events, Watcher& watcher) const {
        return Control(EPOLL_CTL_MOD, fd, events, Target(watcher));
    }
    // By an even number. What is ready at the time of the call counts as an edge.
    bool AddNumbered(int fd, uint32_t events, uintptr_t number) const {
        return Control(EPOLL_CTL_ADD, fd, events | EPOLLET, number | kNumbered);
    }
    bool ChangeNumbered(int fd, uint32_t events, uintptr_t number) const {
        return Control(EPOLL_CTL_MOD, fd, events | EPOLLET, number | kNumbered);
    }
    void Remove(int fd) const { Control(EPOLL_CTL_DEL, fd, 0, 0); }

    // Who handles numbered events of all sets. Immortal; set before the first registration.
    static void SetNumberedWatcher(NumberedWatcher& watcher);

    // Waits up to timeoutMs (-1: for ever) for one event.
    Ready Wait(int timeoutMs) const;

private:
    static constexpr uint64_t kNumbered = 1;  // objects lie at even addresses
    static uint64_t Target(Watcher& watcher) { return reinterpret_cast<uintptr_t>(&watcher); }
    bool Control(int operation, int fd, uint32_t events, uint64_t target) const;

    Descriptor ep;
};

}  // namespace platform
