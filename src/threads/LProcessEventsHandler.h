// Waits for the main thread: for a time, a signal object or a group, while the application's events, the main queue and
// what LThreadRunOnMainThread posts go on being served. A signal object that becomes set ends its wait at once; its
// descriptor stays open and its byte unread. Main thread only.
#pragma once

#include "threads/LSignalObjectGroup.h"

#include <Carbon/CarbonEvents.h>
#include <CoreFoundation/CFSocket.h>

class LProcessEventsHandler {
public:
    virtual ~LProcessEventsHandler() = default;
    // Asked every 10 ms by the waits without end; by those with a time-out at their begin and after each event only.
    virtual bool IsProcessEventHandlerToStop() const = 0;

    // An LWaitResult each. 0xFFFFFFFF milliseconds: for ever.
    int ProcessWaitForeverAndProcessEvents();  // waitStopped
    // 0 when the time has passed; waitStopped also when an event of kind 3 was dispatched.
    int ProcessWaitAndProcessEvents(unsigned int milliseconds);
    // waitTimedOut at once for 0 milliseconds.
    int ProcessWaitSignalAndProcessEvents(LSignalObjectRef object, unsigned int milliseconds);
    int ProcessWaitSignalForeverAndProcessEvents(LSignalObjectRef object);
    int ProcessWaitSignalObjectGroupAndProcessEvents(LSignalObjectGroup& group, unsigned int milliseconds);

    static void SocketCallBack(CFSocketRef socket, CFOptionFlags type, CFDataRef address, const void* data, void* info);
    static void ClearEventQueue();
};

class LProcessEventsHandlerNeverStop : public LProcessEventsHandler {
public:
    bool IsProcessEventHandlerToStop() const override { return false; }
};

// The same waits without anybody who stops them.
int ProcessWaitAndProcessEvents(unsigned int milliseconds);
int ProcessWaitSignalObjectAndProcessEvents(LSignalObjectRef object);
int ProcessWaitSignalObjectAndProcessEvents(LSignalObjectRef object, unsigned int milliseconds);
int ProcessWaitSignalObjectGroupAndProcessEvents(LSignalObjectGroup& group, unsigned int milliseconds);

// Dispatch what is in the queue and, within bounds, what that posts; or only what is there now. True when anything was
// dispatched.
bool LProcessClearEventQueue();
bool LProcessClearCurrentEvents();
