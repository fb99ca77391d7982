#include "CFObject.h"
#include "EventQueue.h"
#include "MainQueue.h"

#include <CoreFoundation/CFSocket.h>

#include <fcntl.h>

// A copy of the descriptor is what is waited for: one epoll set takes each descriptor once only.
struct CFSocket {
    platform::CFHeader header;
    int native;
    platform::Descriptor copy;
    CFSocketCallBack callBack;
};

namespace platform {
namespace {

class SocketWatcher final : public Watcher {
public:
    explicit SocketWatcher(CFSocketRef watched) : socket(static_cast<CFSocketRef>(CFRetain(watched))) {}
    ~SocketWatcher() {
        Stop();
        CFRelease(socket);
    }
    SocketWatcher(const SocketWatcher&) = delete;
    SocketWatcher& operator=(const SocketWatcher&) = delete;

    void OnReady(uint32_t) override { socket->callBack(socket, kCFSocketReadCallBack, nullptr, nullptr, nullptr); }

    void Start() {
        if (isAdded || !MainQueue::Shared().Events().Add(socket->copy.Get(), EPOLLIN, *this)) return;
        isAdded = true;
        EventQueue::Shared().AddSource(
            this, [this] { MainQueue::Shared().Events().Arm(socket->copy.Get(), EPOLLIN, *this); });
    }
    void Stop() {
        if (!isAdded) return;
        isAdded = false;
        EventQueue::Shared().RemoveSource(this);
        MainQueue::Shared().Events().Remove(socket->copy.Get());
    }

    bool IsAdded() const { return isAdded; }

private:
    CFSocketRef const socket;
    bool isAdded = false;
};

}  // namespace
}  // namespace platform

struct CFRunLoopSource {
    platform::CFHeader header;
    platform::SocketWatcher* const watcher;  // owned

    ~CFRunLoopSource() { delete watcher; }
};

CFSocketRef CFSocketCreateWithNative(CFAllocatorRef, CFSocketNativeHandle native, CFOptionFlags types,
                                     CFSocketCallBack callBack, const void* context) {
    if (native < 0 || types != kCFSocketReadCallBack || !callBack || context) return nullptr;
    platform::Descriptor copy(fcntl(native, F_DUPFD_CLOEXEC, 0));
    if (!copy) return nullptr;
    return platform::MakeCF<CFSocket>(native, std::move(copy), callBack);
}

CFSocketNativeHandle CFSocketGetNative(CFSocketRef socket) {
    return socket->native;
}

CFRunLoopSourceRef CFSocketCreateRunLoopSource(CFAllocatorRef, CFSocketRef socket, CFIndex) {
    if (!socket) return nullptr;
    return platform::MakeCF<CFRunLoopSource>(new platform::SocketWatcher(socket));
}

void CFRunLoopAddSource(CFRunLoopRef, CFRunLoopSourceRef source, CFStringRef) {
    if (source) source->watcher->Start();
}

bool CFRunLoopContainsSource(CFRunLoopRef, CFRunLoopSourceRef source, CFStringRef) {
    return source && source->watcher->IsAdded();
}

void CFRunLoopRemoveSource(CFRunLoopRef, CFRunLoopSourceRef source, CFStringRef) {
    if (source) source->watcher->Stop();
}
