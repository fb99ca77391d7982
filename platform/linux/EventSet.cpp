#include "EventSet.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace platform {

namespace {
std::atomic<NumberedWatcher*> numbered{nullptr};
}

EventSet::EventSet() : ep(epoll_create1(EPOLL_CLOEXEC)) {
    if (ep) return;
    std::perror("epoll_create1");  // without it no event of any kind could ever arrive
    std::abort();
}

void EventSet::SetNumberedWatcher(NumberedWatcher& watcher) {
    numbered.store(&watcher, std::memory_order_release);
}

bool EventSet::Control(int operation, int fd, uint32_t events, uint64_t target) const {
    epoll_event event{};
    event.events = events;
    event.data.u64 = target;
    return epoll_ctl(ep.Get(), operation, fd, &event) == 0;
}

EventSet::Ready EventSet::Wait(int timeoutMs) const {
    epoll_event event{};
    Ready ready;
    if (epoll_wait(ep.Get(), &event, 1, timeoutMs) != 1) return ready;
    ready.target = event.data.u64;
    ready.events = event.events;
    return ready;
}

void EventSet::Ready::Handle() const {
    if (target & kNumbered)
        numbered.load(std::memory_order_acquire)->OnReady(target & ~kNumbered, events);
    else
        reinterpret_cast<Watcher*>(target)->OnReady(events);
}

}  // namespace platform
