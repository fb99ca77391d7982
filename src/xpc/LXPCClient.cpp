#include "xpc/LXPCClient.h"

#include "text/LAscii.h"
#include "xpc/LXPCObjectRef.h"

#include <cstring>
#include <memory>

LXPCClient::~LXPCClient() {
    token.Close();
    DestroyConnections();
}

LListIterator<LXPCConnection> LXPCClient::Find(const char* serviceName, unsigned long id) {
    LListIterator<LXPCConnection> it(connections);
    for (; it; it.Next()) {
        const auto& connection = static_cast<const LXPCConnectionClient&>(*it);
        if (connection.nServiceId == id && LAsciiCompareNoCase(connection.szServiceName, serviceName) == 0) break;
    }
    return it;
}

bool LXPCClient::Connect(const char* serviceName, unsigned long id, bool machService) {
    if (!serviceName || std::strlen(serviceName) >= LTextBufferSize) return false;
    const xpc_connection_t connection = machService ? xpc_connection_create_mach_service(serviceName, nullptr, 0)
                                                    : xpc_connection_create(serviceName, nullptr);
    if (!connection) return false;
    auto record = std::make_unique<LXPCConnectionClient>(connection, serviceName, id);
    LMutexLock guard(lock);
    LXPCConnection& kept = *record;
    connections.Add(record.release());
    SetupConnectionHandlerAndResume(kept);
    return true;
}

void LXPCClient::Disconnect(const char* serviceName, unsigned long id) {
    std::unique_ptr<LXPCConnection> detached;
    LMutexLock guard(lock);
    LListIterator<LXPCConnection> it = Find(serviceName, id);
    detached.reset(connections.Detach(it));
}

void LXPCClient::Suspend(const char* serviceName, unsigned long id) {
    LMutexLock guard(lock);
    if (const LListIterator<LXPCConnection> it = Find(serviceName, id)) it->Suspend();
}

void LXPCClient::Resume(const char* serviceName, unsigned long id) {
    LMutexLock guard(lock);
    if (const LListIterator<LXPCConnection> it = Find(serviceName, id)) it->Resume();
}

void LXPCClient::SendMessage(const char* serviceName, unsigned long id, const LXPCData* items, unsigned long count,
                             bool withReply) {
    // The reference keeps the identifier from naming another connection while it is used.
    LXPCObjectRef connection;
    {
        LMutexLock guard(lock);
        const LListIterator<LXPCConnection> it = Find(serviceName, id);
        if (!it) return;
        connection.reset(xpc_retain(it->hConnection));
    }
    const LXPCObjectRef message(xpc_dictionary_create(nullptr, nullptr, 0));
    for (unsigned long i = count; i-- > 0;) SetXPCItem(message.get(), items[i]);
    Send(connection.get(), message.get(), withReply);
}
