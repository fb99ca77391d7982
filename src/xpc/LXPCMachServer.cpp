#include "xpc/LXPCMachServer.h"

bool LXPCMachServer::Start(const char* serviceName) {
    const xpc_connection_t listener = xpc_connection_create_mach_service(serviceName, dispatch_get_main_queue(),
                                                                         XPC_CONNECTION_MACH_SERVICE_LISTENER);
    if (!listener) return false;
    xpc_connection_set_event_handler(listener, [this, gate = token.Gate()](xpc_object_t event) {
        LCallbackScope scope(gate);
        if (scope && xpc_get_type(event) == XPC_TYPE_CONNECTION) NewConnectionHandler(event);
    });
    xpc_connection_resume(listener);
    dispatch_main();
}
