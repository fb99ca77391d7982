// EventQueue: the main event queue. Any thread posts; the main thread's set holds the queue's eventfd, so that whatever
// serves the main thread notices. While nobody fetches, what is posted is dispatched from there. Immortal.
#pragma once

#include "EventSet.h"

#include <Carbon/CarbonEvents.h>
#include <bsd/LMutex.h>

#include <deque>
#include <functional>
#include <vector>

namespace platform {

class EventQueue final : private Watcher {
public:
    static EventQueue& Shared();

    void Post(EventRef event);
    size_t Count();
    void Flush(EventComparatorUPP comparator, void* data);

    // Main thread. Null after the time-out.
    EventRef Fetch(uint32_t timeoutMs);

    EventHandlerRef Install(EventHandlerUPP handler, const EventTypeSpec& type, void* userData);
    void Remove(EventHandlerRef handler);
    OSStatus Send(EventRef event);

    // Called at the beginning of each fetch that may wait. Main thread.
    void AddSource(void* source, std::function<void()> arm);
    void RemoveSource(void* source);

private:
    struct Handler {
        EventTypeSpec type;
        EventHandlerUPP call;
        void* userData;
        uintptr_t number;
    };
    struct Source {
        void* identity;
        std::function<void()> arm;
    };

    EventQueue();
    void OnReady(uint32_t events) override;
    EventRef Take();
    bool HasFetchable();
    const Handler* FindHandler(const OpaqueEventRef& event) const L_REQUIRES(lock);
    std::deque<EventRef>::iterator FirstFetchable() L_REQUIRES(lock);

    Descriptor wake;
    int fetching = 0;             // the main thread's
    std::vector<Source> sources;  // the main thread's

    LMutex lock;
    std::deque<EventRef> events L_GUARDED_BY(lock);
    std::vector<Handler> handlers L_GUARDED_BY(lock);
    uintptr_t lastHandler L_GUARDED_BY(lock) = 0;
};

}  // namespace platform
