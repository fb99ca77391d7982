#include "threads/LProcessEventsHandler.h"

#include "text/LArray.h"
#include "threads/LProcessInterface.h"
#include "threads/LThreadRunOnMainThread.h"

#include <algorithm>
#include <cassert>
#include <chrono>
#include <cstdint>

namespace {

constexpr OSType kWakeUpClass = 0x4C536E63;           // "LSnc"
constexpr UInt32 kWakeUpKind = 0x4C536E6B;            // "LSnk"
constexpr EventParamName kWakeUpSocket = 0x4C53736F;  // "LSso": its descriptor
constexpr OSType kMarker = 0x506C6163;                // "Plac", class and kind
constexpr UInt32 kEndingKind = 3;
constexpr EventTimeout kSlice = 0.01;

int64_t NowMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

EventRef Fetch(EventTimeout seconds) {
    EventRef event = nullptr;
    return ReceiveNextEvent(0, nullptr, seconds, true, &event) == noErr ? event : nullptr;
}

// Wake-up events only end the fetch. The kind of what was dispatched.
UInt32 Dispatch(EventRef event) {
    const UInt32 kind = GetEventKind(event);
    if (GetEventClass(event) != kWakeUpClass) SendEventToEventTarget(event, GetEventDispatcherTarget());
    ReleaseEvent(event);
    return kind;
}

bool FetchAndDispatch(EventTimeout seconds) {
    EventRef event = Fetch(seconds);
    if (event) Dispatch(event);
    return event != nullptr;
}

void Post(OSType eventClass, UInt32 kind, EventAttributes attributes, const SInt32* socket = nullptr) {
    EventRef event = nullptr;
    CreateEvent(nullptr, eventClass, kind, 0, attributes, &event);
    if (socket) SetEventParameter(event, kWakeUpSocket, typeLongInteger, sizeof *socket, socket);
    PostEventToQueue(GetMainEventQueue(), event, kEventPriorityStandard);
    ReleaseEvent(event);
}

struct LSocketLoopSourcePair {
    CFSocketRef socket = nullptr;
    CFRunLoopSourceRef source = nullptr;
};

// Posts a wake-up event whenever one of the descriptors can be read, for its lifetime.
class WakeUps {
public:
    explicit WakeUps(int descriptor) : pairs(1) { Add(descriptor); }
    explicit WakeUps(const LSignalObjectGroup& group) : pairs(static_cast<unsigned long>(group.Count())) {
        group.ForEachDescriptor([this](int descriptor) { Add(descriptor); });
    }
    ~WakeUps() {
        for (unsigned long i = 0; i < count; i++) {
            CFRunLoopRemoveSource(Loop(), pairs[i].source, kCFRunLoopDefaultMode);
            CFRelease(pairs[i].source);
            CFRelease(pairs[i].socket);
        }
        // A later wait, or whoever clears the queue, is not to find them.
        FlushSpecificEventsFromQueue(
            GetMainEventQueue(), [](EventRef event, void*) { return GetEventClass(event) == kWakeUpClass; }, nullptr);
    }
    WakeUps(const WakeUps&) = delete;
    WakeUps& operator=(const WakeUps&) = delete;

    // Not: there was no room for some of them, and the wait has to look from time to time.
    bool IsWhole() const { return isWhole; }

private:
    static CFRunLoopRef Loop() { return GetCFRunLoopFromEventLoop(GetMainEventLoop()); }

    void Add(int descriptor) {
        LSocketLoopSourcePair pair;
        pair.socket = CFSocketCreateWithNative(kCFAllocatorDefault, descriptor, kCFSocketReadCallBack,
                                               LProcessEventsHandler::SocketCallBack, nullptr);
        pair.source = CFSocketCreateRunLoopSource(kCFAllocatorDefault, pair.socket, 0);
        CFRunLoopAddSource(Loop(), pair.source, kCFRunLoopDefaultMode);
        isWhole = isWhole && CFRunLoopContainsSource(Loop(), pair.source, kCFRunLoopDefaultMode);
        if (pair.source) pairs[count++] = pair;
    }

    LArray<LSocketLoopSourcePair> pairs;
    unsigned long count = 0;
    bool isWhole = true;
};

template <class IsSet>
int WaitFor(const LProcessEventsHandler& owner, const WakeUps& wakeUps, const IsSet& isSet, unsigned int milliseconds) {
    assert(LIsMainThread());
    const bool isEndless = milliseconds == kSignalNoTimeOut;
    const int64_t end = NowMs() + milliseconds;
    for (int64_t left = milliseconds; left > 0; left = isEndless ? left : end - NowMs()) {
        if (isSet()) return waitSet;
        if (owner.IsProcessEventHandlerToStop()) return waitStopped;
        const EventTimeout seconds = static_cast<double>(left) / 1'000;
        FetchAndDispatch(isEndless || !wakeUps.IsWhole() ? std::min(seconds, kSlice) : seconds);
    }
    return waitTimedOut;
}

}  // namespace

int LProcessEventsHandler::ProcessWaitForeverAndProcessEvents() {
    assert(LIsMainThread());
    while (!IsProcessEventHandlerToStop()) FetchAndDispatch(kSlice);
    return waitStopped;
}

int LProcessEventsHandler::ProcessWaitAndProcessEvents(unsigned int milliseconds) {
    assert(LIsMainThread());
    if (milliseconds == kSignalNoTimeOut) return ProcessWaitForeverAndProcessEvents();
    const int64_t end = NowMs() + milliseconds;
    if (IsProcessEventHandlerToStop()) return waitStopped;
    for (int64_t left = milliseconds; left > 0; left = end - NowMs()) {
        EventRef event = Fetch(static_cast<double>(left) / 1'000);
        if (event && Dispatch(event) == kEndingKind) return waitStopped;
        if (IsProcessEventHandlerToStop()) return waitStopped;
    }
    return waitSet;
}

int LProcessEventsHandler::ProcessWaitSignalAndProcessEvents(LSignalObjectRef object, unsigned int milliseconds) {
    const WakeUps wakeUps(object.ReadDescriptor());
    return WaitFor(
        *this, wakeUps, [&] { return object.IsSignaled(); }, milliseconds);
}

int LProcessEventsHandler::ProcessWaitSignalForeverAndProcessEvents(LSignalObjectRef object) {
    return ProcessWaitSignalAndProcessEvents(object, kSignalNoTimeOut);
}

int LProcessEventsHandler::ProcessWaitSignalObjectGroupAndProcessEvents(LSignalObjectGroup& group,
                                                                        unsigned int milliseconds) {
    const WakeUps wakeUps(group);
    return WaitFor(
        *this, wakeUps, [&] { return group.IsSignaled(); }, milliseconds);
}

void LProcessEventsHandler::SocketCallBack(CFSocketRef socket, CFOptionFlags, CFDataRef, const void*, void*) {
    const SInt32 descriptor = CFSocketGetNative(socket);
    Post(kWakeUpClass, kWakeUpKind, kEventAttributeNone, &descriptor);
}

void LProcessEventsHandler::ClearEventQueue() {
    LProcessClearEventQueue();
}

int ProcessWaitAndProcessEvents(unsigned int milliseconds) {
    return LProcessEventsHandlerNeverStop().ProcessWaitAndProcessEvents(milliseconds);
}

int ProcessWaitSignalObjectAndProcessEvents(LSignalObjectRef object) {
    return LProcessEventsHandlerNeverStop().ProcessWaitSignalForeverAndProcessEvents(object);
}

int ProcessWaitSignalObjectAndProcessEvents(LSignalObjectRef object, unsigned int milliseconds) {
    return LProcessEventsHandlerNeverStop().ProcessWaitSignalAndProcessEvents(object, milliseconds);
}

int ProcessWaitSignalObjectGroupAndProcessEvents(LSignalObjectGroup& group, unsigned int milliseconds) {
    return LProcessEventsHandlerNeverStop().ProcessWaitSignalObjectGroupAndProcessEvents(group, milliseconds);
}

bool LProcessClearEventQueue() {
    constexpr ItemCount kFirstAttempts = 4;
    bool isAny = false;
    const auto attempt = [&](ItemCount times) {
        for (; times > 0; times--) isAny |= FetchAndDispatch(0);
    };
    attempt(std::min(GetNumEventsInQueue(GetMainEventQueue()) + 1, kFirstAttempts));
    attempt(GetNumEventsInQueue(GetMainEventQueue()) + 1);
    return isAny;
}

bool LProcessClearCurrentEvents() {
    Post(kMarker, kMarker, kEventAttributeUserEvent);
    bool isAny = false;
    while (EventRef event = Fetch(0)) {
        if (GetEventClass(event) == kMarker && GetEventKind(event) == kMarker) {
            ReleaseEvent(event);
            break;
        }
        Dispatch(event);
        isAny = true;
    }
    return isAny;
}
