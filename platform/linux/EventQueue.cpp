#include "EventQueue.h"

#include "ExitGate.h"
#include "MainQueue.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <sys/eventfd.h>

struct OpaqueEventRef {
    struct Parameter {
        EventParamType type;
        std::string bytes;
    };

    std::atomic<uint32_t> references{1};
    OSType eventClass;
    UInt32 kind;
    std::map<EventParamName, Parameter> parameters;

    OpaqueEventRef(OSType ofClass, UInt32 ofKind) : eventClass(ofClass), kind(ofKind) {}
    bool HasPointer() const {
        return std::any_of(parameters.begin(), parameters.end(),
                           [](const auto& parameter) { return parameter.second.type == typeVoidPtr; });
    }
};

namespace platform {

EventQueue& EventQueue::Shared() {
    static EventQueue& queue = *new EventQueue;
    return queue;
}

EventQueue::EventQueue() : wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (wake && MainQueue::Shared().Events().AddLasting(wake.Get(), EPOLLIN, *this)) return;
    std::perror("event queue");
    std::abort();
}

void EventQueue::Post(EventRef event) {
    event->references.fetch_add(1, std::memory_order_relaxed);
    LMutexLock guard(lock);
    events.push_back(event);
    eventfd_write(wake.Get(), 1);
}

size_t EventQueue::Count() {
    LMutexLock guard(lock);
    return events.size();
}

void EventQueue::Flush(EventComparatorUPP comparator, void* data) {
    std::vector<EventRef> flushed;
    {
        LMutexLock guard(lock);
        const auto kept = std::stable_partition(events.begin(), events.end(),
                                                [&](EventRef event) { return !comparator(event, data); });
        flushed.assign(kept, events.end());
        events.erase(kept, events.end());
    }
    for (EventRef event : flushed) ReleaseEvent(event);
}

const EventQueue::Handler* EventQueue::FindHandler(const OpaqueEventRef& event) const {
    const auto found = std::find_if(handlers.begin(), handlers.end(), [&](const Handler& handler) {
        return handler.type.eventClass == event.eventClass && handler.type.eventKind == event.kind;
    });
    return found == handlers.end() ? nullptr : &*found;
}

std::deque<EventRef>::iterator EventQueue::FirstFetchable() {
    auto it = events.begin();
    while (it != events.end() && (*it)->HasPointer() && !FindHandler(**it)) ++it;
    return it;
}

bool EventQueue::HasFetchable() {
    LMutexLock guard(lock);
    return FirstFetchable() != events.end();
}

// Who takes one sees to it that the set tells of those behind it.
EventRef EventQueue::Take() {
    LMutexLock guard(lock);
    const auto first = FirstFetchable();
    if (first == events.end()) return nullptr;
    EventRef event = *first;
    events.erase(first);
    if (FirstFetchable() != events.end()) eventfd_write(wake.Get(), 1);
    return event;
}

EventRef EventQueue::Fetch(uint32_t timeoutMs) {
    EventRef event = Take();
    if (event || timeoutMs == 0) return event;
    for (const Source& source : std::vector<Source>(sources)) source.arm();
    fetching++;
    MainQueue::Shared().Pump([this] { return HasFetchable(); }, timeoutMs);
    fetching--;
    return Take();
}

// In a fetch the one who fetches looks by himself.
void EventQueue::OnReady(uint32_t) {
    eventfd_t count;
    eventfd_read(wake.Get(), &count);
    if (fetching > 0) return;
    EventRef event = Take();
    if (!event) return;
    Send(event);
    ReleaseEvent(event);
}

EventHandlerRef EventQueue::Install(EventHandlerUPP handler, const EventTypeSpec& type, void* userData) {
    LMutexLock guard(lock);
    handlers.push_back({type, handler, userData, ++lastHandler});
    eventfd_write(wake.Get(), 1);  // what waited for it
    return reinterpret_cast<EventHandlerRef>(lastHandler);
}

void EventQueue::Remove(EventHandlerRef handler) {
    LMutexLock guard(lock);
    std::erase_if(handlers, [&](const Handler& one) { return one.number == reinterpret_cast<uintptr_t>(handler); });
}

OSStatus EventQueue::Send(EventRef event) {
    Handler handler{};
    {
        LMutexLock guard(lock);
        if (const Handler* found = FindHandler(*event)) handler = *found;
    }
    if (!handler.call) return eventNotHandledErr;
    ExitGatePassage passage;
    return handler.call(nullptr, event, handler.userData);
}

void EventQueue::AddSource(void* source, std::function<void()> arm) {
    sources.push_back({source, std::move(arm)});
}

void EventQueue::RemoveSource(void* source) {
    std::erase_if(sources, [&](const Source& one) { return one.identity == source; });
}

}  // namespace platform

using platform::EventQueue;

OSStatus CreateEvent(CFAllocatorRef, OSType eventClass, UInt32 kind, EventTime, EventAttributes, EventRef* event) {
    *event = new OpaqueEventRef(eventClass, kind);
    return noErr;
}

void ReleaseEvent(EventRef event) {
    if (event && event->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete event;
}

OSType GetEventClass(EventRef event) {
    return event->eventClass;
}

UInt32 GetEventKind(EventRef event) {
    return event->kind;
}

OSStatus SetEventParameter(EventRef event, EventParamName name, EventParamType type, ByteCount size, const void* data) {
    event->parameters[name] = {type, std::string(static_cast<const char*>(data), size)};
    return noErr;
}

OSStatus GetEventParameter(EventRef event, EventParamName name, EventParamType type, EventParamType*, ByteCount size,
                           ByteCount*, void* data) {
    const auto found = event->parameters.find(name);
    if (found == event->parameters.end() || found->second.type != type || found->second.bytes.size() != size)
        return eventParameterNotFoundErr;
    std::memcpy(data, found->second.bytes.data(), size);
    return noErr;
}

EventQueueRef GetMainEventQueue() {
    return reinterpret_cast<EventQueueRef>(&EventQueue::Shared());
}

OSStatus PostEventToQueue(EventQueueRef, EventRef event, EventPriority) {
    EventQueue::Shared().Post(event);
    return noErr;
}

ItemCount GetNumEventsInQueue(EventQueueRef) {
    return EventQueue::Shared().Count();
}

OSStatus FlushSpecificEventsFromQueue(EventQueueRef, EventComparatorUPP comparator, void* data) {
    EventQueue::Shared().Flush(comparator, data);
    return noErr;
}

OSStatus ReceiveNextEvent(ItemCount typeCount, const EventTypeSpec*, EventTimeout seconds, bool pull, EventRef* event) {
    if (typeCount != 0 || !pull) return paramErr;
    // What is shorter than a millisecond still waits; what is longer than weeks, for weeks.
    const double ms = std::clamp(seconds * 1'000, 0.0, 4e9);
    *event = EventQueue::Shared().Fetch(static_cast<uint32_t>(ms) + (ms > static_cast<uint32_t>(ms)));
    return *event ? noErr : eventLoopTimedOutErr;
}

EventTargetRef GetApplicationEventTarget() {
    return reinterpret_cast<EventTargetRef>(&EventQueue::Shared());
}

EventTargetRef GetEventDispatcherTarget() {
    return GetApplicationEventTarget();
}

OSStatus InstallEventHandler(EventTargetRef, EventHandlerUPP handler, ItemCount typeCount, const EventTypeSpec* types,
                             void* userData, EventHandlerRef* installed) {
    if (typeCount != 1 || !handler) return paramErr;
    *installed = EventQueue::Shared().Install(handler, *types, userData);
    return noErr;
}

OSStatus RemoveEventHandler(EventHandlerRef handler) {
    EventQueue::Shared().Remove(handler);
    return noErr;
}

OSStatus SendEventToEventTarget(EventRef event, EventTargetRef) {
    return EventQueue::Shared().Send(event);
}

EventLoopRef GetMainEventLoop() {
    return reinterpret_cast<EventLoopRef>(&EventQueue::Shared());
}

CFRunLoop* GetCFRunLoopFromEventLoop(EventLoopRef loop) {
    return reinterpret_cast<CFRunLoop*>(loop);
}
