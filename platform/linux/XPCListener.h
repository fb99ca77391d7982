// XPCListener: a named service's listening socket. Each accepted peer is an event on the main queue: the main thread's
// set holds the socket, so the main thread accepts by itself. A peer that its handler neither resumes nor retains is
// closed when the handler returns. Lives as long as the process once it is resumed.
#pragma once

#include "AcceptPause.h"
#include "EventSet.h"
#include "ServiceFolder.h"
#include "XPCObject.h"

#include <string>

namespace platform {

class XPCListener final : public xpc_object_s, private Watcher {
public:
    // Binds the service at once; null when that fails.
    static XPCRef<XPCListener> Create(const std::string& serviceName);

    void SetEventHandler(xpc_handler_t eventHandler) { handler = std::move(eventHandler); }
    void Resume();
    void Cancel();

private:
    explicit XPCListener(ServiceSocket bound);
    void OnReady(uint32_t events) override;
    void Listen();
    bool AcceptOne();
    void Look(uint32_t events);

    ServiceSocket service;
    AcceptPause pause;
    xpc_handler_t handler;
    bool resumed = false;
};

}  // namespace platform
