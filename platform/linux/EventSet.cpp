#include "EventSet.h"

#include <cstdio>
#include <cstdlib>

namespace platform {

EventSet::EventSet() : ep(epoll_create1(EPOLL_CLOEXEC)) {
    if (ep) return;
    std::perror("epoll_create1");  // without it no event of any kind could ever arrive
    std::abort();
}

bool EventSet::Control(int operation, int fd, uint32_t events, Watcher* watcher) const {
    epoll_event event{};
    event.events = events | EPOLLONESHOT;
    event.data.ptr = watcher;
    return epoll_ctl(ep.Get(), operation, fd, &event) == 0;
}

Watcher* EventSet::Wait(int timeoutMs, uint32_t& events) const {
    epoll_event event{};
    if (epoll_wait(ep.Get(), &event, 1, timeoutMs) != 1) return nullptr;
    events = event.events;
    return static_cast<Watcher*>(event.data.ptr);
}

}  // namespace platform
