// Core Foundation's sockets and run-loop sources, the subset that this system calls: to be told on the main thread when
// a descriptor can be read. Main thread only.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

using CFOptionFlags = unsigned long;
using CFSocketNativeHandle = int;
using CFSocketRef = const struct CFSocket*;
using CFRunLoopSourceRef = const struct CFRunLoopSource*;
using CFRunLoopRef = struct CFRunLoop*;
using CFDataRef = const struct CFData*;
using CFSocketCallBack = void (*)(CFSocketRef socket, CFOptionFlags type, CFDataRef address, const void* data,
                                  void* info);

inline constexpr CFOptionFlags kCFSocketReadCallBack = 1;
inline constexpr CFStringRef kCFRunLoopDefaultMode = nullptr;

// Doesn't own the descriptor, which must stay open; several sockets may be made of one. Null when there is none, or no
// room for another descriptor. Only read call-backs; the context must be null.
CFSocketRef CFSocketCreateWithNative(CFAllocatorRef allocator, CFSocketNativeHandle native, CFOptionFlags types,
                                     CFSocketCallBack callBack, const void* context);
CFSocketNativeHandle CFSocketGetNative(CFSocketRef socket);
// Null for a null socket.
CFRunLoopSourceRef CFSocketCreateRunLoopSource(CFAllocatorRef allocator, CFSocketRef socket, CFIndex order);

// While it is added, the call-back is called once in each fetch of an event during which the descriptor can be read.
// Nothing is read. A source that the system has no room for isn't added.
void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFStringRef mode);
bool CFRunLoopContainsSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFStringRef mode);
void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFStringRef mode);
