#include "xpc/LXPCBase.h"

#include "xpc/LXPCObjectRef.h"

#include <memory>
#include <unistd.h>

namespace {

LXPCObjectRef RetainHandle(long handle, xpc_type_t type) {
    return LXPCObjectRef(xpc_handle_retain(handle, type));
}

long ConnectionOf(xpc_object_t event) {
    return reinterpret_cast<long>(xpc_dictionary_get_remote_connection(event));
}

// Descriptors that the sink left in the items belong to nobody: close them.
class DescriptorsCloser {
public:
    explicit DescriptorsCloser(const LList<LXPCDataListable>& list) : items(list) {}
    ~DescriptorsCloser() {
        for (LListIterator<LXPCDataListable> item(items); item; item.Next())
            if (item->type == xpcDataFD && item->nValue >= 0) close(static_cast<int>(item->nValue));
    }
    DescriptorsCloser(const DescriptorsCloser&) = delete;
    DescriptorsCloser& operator=(const DescriptorsCloser&) = delete;

private:
    const LList<LXPCDataListable>& items;
};

}  // namespace

void LXPCBase::AddKey(const char* name, LXPCDataType type) {
    auto key = std::make_unique<LXPCDictionaryKeyListable>(name, type);
    LMutexLock guard(lock);
    keys.Add(key.release());
}

void LXPCBase::AddKey(const LXPCDictionaryKeyListable& key) {
    AddKey(key.szName, key.type);
}

void LXPCBase::SetupConnectionHandlerAndResume(LXPCConnection& c) {
    xpc_connection_set_event_handler(c.hConnection, [this, gate = token.Gate()](xpc_object_t event) {
        LCallbackScope scope(gate);
        if (scope) HandleEvent(event, false);
    });
    c.Resume();
}

void LXPCBase::ReadItems(xpc_object_t message, LList<LXPCDataListable>& items) {
    LMutexLock guard(lock);
    GetXPCDictionary(message, keys, items);
}

void LXPCBase::HandleEvent(xpc_object_t event, bool isReply) {
    const xpc_type_t type = xpc_get_type(event);
    if (type == XPC_TYPE_ERROR) return ErrorHandler(event, ConnectionOf(event), pNotify);
    if (type != XPC_TYPE_DICTIONARY) return;
    LList<LXPCDataListable> items;
    const DescriptorsCloser closer(items);
    ReadItems(event, items);
    if (items.IsEmpty()) return;
    if (isReply)
        pNotify->EvReplyReceived(ConnectionOf(event), items);
    else
        pNotify->EvMessageReceived(ConnectionOf(event), reinterpret_cast<long>(event), items);
}

void LXPCBase::SendMessage(long connection, const LList<LXPCDataListable>& items, bool withReply) {
    const LXPCObjectRef target = RetainHandle(connection, XPC_TYPE_CONNECTION);
    if (!target) return;
    const LXPCObjectRef message(xpc_dictionary_create(nullptr, nullptr, 0));
    SetXPCDictionary(message.get(), items);
    Send(target.get(), message.get(), withReply);
}

void LXPCBase::Send(xpc_connection_t connection, xpc_object_t message, bool withReply) {
    if (!withReply) return SendAndTell(connection, message);
    xpc_connection_send_message_with_reply(connection, message, dispatch_get_main_queue(),
                                           [this, gate = token.Gate()](xpc_object_t reply) {
                                               LCallbackScope scope(gate);
                                               if (scope) HandleEvent(reply, true);
                                           });
}

void LXPCBase::SendReply(long connection, long message, const LList<LXPCDataListable>& items) {
    const LXPCObjectRef target = RetainHandle(connection, XPC_TYPE_CONNECTION);
    const LXPCObjectRef request = RetainHandle(message, XPC_TYPE_DICTIONARY);
    if (!target || !request) return;
    const LXPCObjectRef reply(xpc_dictionary_create_reply(request.get()));
    if (!reply) return;
    SetXPCDictionary(reply.get(), items);
    SendAndTell(target.get(), reply.get());
}

void LXPCBase::SendAndTell(xpc_connection_t connection, xpc_object_t message) {
    xpc_connection_send_message(connection, message);
    xpc_connection_send_barrier(connection, [this, gate = token.Gate(), id = reinterpret_cast<long>(connection)] {
        LCallbackScope scope(gate);
        if (scope) pNotify->EvMessageSent(id);
    });
}

// One at a time, each unlinked before its destructor runs.
void LXPCBase::DestroyConnections() {
    for (;;) {
        std::unique_ptr<LXPCConnection> connection;
        {
            LMutexLock guard(lock);
            LListIterator<LXPCConnection> head(connections);
            connection.reset(connections.Detach(head));
        }
        if (!connection) return;
    }
}

void ErrorHandler(void* error, long connection, LXPCEventNotify* notify) {
    LXPCErrorType type = xpcErrorOther;
    if (error == XPC_ERROR_CONNECTION_INVALID)
        type = xpcErrorConnectionInvalid;
    else if (error == XPC_ERROR_CONNECTION_INTERRUPTED)
        type = xpcErrorConnectionInterrupted;
    else if (error == XPC_ERROR_TERMINATION_IMMINENT)
        type = xpcErrorTerminationImminent;
    notify->EvConnectionError(connection, type);
}
