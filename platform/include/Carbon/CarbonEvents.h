// Carbon events, the subset that this system calls: the application's event queue and who handles what comes out of it.
//
// There is one queue, the main event queue. Any thread may make events and post them, one event being used by one
// thread at a time; all else is the main thread's. Whatever serves the main thread (its loop, dispatch_pump_main)
// dispatches what is posted, unless the program fetches it by ReceiveNextEvent.
#pragma once

#include <Carbon/Carbon.h>

using UInt32 = uint32_t;
using ByteCount = unsigned long;
using ItemCount = unsigned long;
using EventTime = double;  // seconds
using EventTimeout = EventTime;
using EventAttributes = UInt32;
using EventPriority = SInt16;
using EventParamName = OSType;
using EventParamType = OSType;
using EventRef = struct OpaqueEventRef*;
using EventQueueRef = struct OpaqueEventQueueRef*;
using EventLoopRef = struct OpaqueEventLoopRef*;
using EventTargetRef = struct OpaqueEventTargetRef*;
using EventHandlerRef = struct OpaqueEventHandlerRef*;
using EventHandlerCallRef = struct OpaqueEventHandlerCallRef*;
using EventHandlerUPP = OSStatus (*)(EventHandlerCallRef next, EventRef event, void* userData);
using EventComparatorUPP = bool (*)(EventRef event, void* data);

struct EventTypeSpec {
    OSType eventClass;
    UInt32 eventKind;
};

inline constexpr OSStatus eventLoopTimedOutErr = -9875;
inline constexpr OSStatus eventNotHandledErr = -9874;
inline constexpr OSStatus eventParameterNotFoundErr = -9870;
inline constexpr EventAttributes kEventAttributeNone = 0;
inline constexpr EventAttributes kEventAttributeUserEvent = 1;
inline constexpr EventPriority kEventPriorityStandard = 1;
inline constexpr EventParamType typeVoidPtr = 0x766F6964;      // 'void': a pointer
inline constexpr EventParamType typeLongInteger = 0x6C6F6E67;  // 'long': 4 bytes

// One reference, which the caller releases. Neither time nor attributes are kept.
OSStatus CreateEvent(CFAllocatorRef allocator, OSType eventClass, UInt32 kind, EventTime when,
                     EventAttributes attributes, EventRef* event);
void ReleaseEvent(EventRef event);
OSType GetEventClass(EventRef event);
UInt32 GetEventKind(EventRef event);
// Parameters are bytes; setting one anew replaces it. eventParameterNotFoundErr for a name, type or size that the event
// doesn't have.
OSStatus SetEventParameter(EventRef event, EventParamName name, EventParamType type, ByteCount size, const void* data);
OSStatus GetEventParameter(EventRef event, EventParamName name, EventParamType type, EventParamType* actualType,
                           ByteCount size, ByteCount* actualSize, void* data);

EventQueueRef GetMainEventQueue();
// Behind those that are there. Keeps a reference.
OSStatus PostEventToQueue(EventQueueRef queue, EventRef event, EventPriority priority);
ItemCount GetNumEventsInQueue(EventQueueRef queue);
// Takes those out of the queue for which the comparator gives true, and releases them; from any thread. The comparator
// runs under the queue's lock: it must call nothing of the queue's, and delete nothing that isn't its own.
OSStatus FlushSpecificEventsFromQueue(EventQueueRef queue, EventComparatorUPP comparator, void* data);

// The first event, which the caller then owns; waits for one, serving the main queue meanwhile, and gives
// eventLoopTimedOutErr if none comes. Of any type (no list), and taken out, always. Events with a pointer for which no
// handler is installed stay: whoever fetched them could only lose what they point to.
OSStatus ReceiveNextEvent(ItemCount typeCount, const EventTypeSpec* types, EventTimeout seconds, bool pull,
                          EventRef* event);

// All targets are one.
EventTargetRef GetApplicationEventTarget();
EventTargetRef GetEventDispatcherTarget();
OSStatus InstallEventHandler(EventTargetRef target, EventHandlerUPP handler, ItemCount typeCount,
                             const EventTypeSpec* types, void* userData, EventHandlerRef* installed);
OSStatus RemoveEventHandler(EventHandlerRef handler);
// What the handler gives; eventNotHandledErr where there is none. The handler runs inside the exit gate.
OSStatus SendEventToEventTarget(EventRef event, EventTargetRef target);

EventLoopRef GetMainEventLoop();
struct CFRunLoop* GetCFRunLoopFromEventLoop(EventLoopRef loop);
