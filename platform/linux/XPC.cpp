// The C names of XPC, over its objects.
#include "InfoPlist.h"
#include "MainBundle.h"
#include "XPCConnection.h"
#include "XPCDictionary.h"
#include "XPCListener.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using namespace platform;

namespace {

// Of the two that a program takes for connections, only listeners aren't known by their address.
XPCConnection* AsConnection(xpc_connection_t object) {
    const bool isOne = object && object->type == XPC_TYPE_CONNECTION && object->isKnown;
    return isOne ? static_cast<XPCConnection*>(object) : nullptr;
}
XPCListener* AsListener(xpc_connection_t object) {
    const bool isOne = object && object->type == XPC_TYPE_CONNECTION && !object->isKnown;
    return isOne ? static_cast<XPCListener*>(object) : nullptr;
}

XPCDictionary* AsDictionary(xpc_object_t object) {
    return object && object->type == XPC_TYPE_DICTIONARY ? static_cast<XPCDictionary*>(object) : nullptr;
}

// A program may only serve the names that its bundle lists.
bool MayRegister(const std::string& name) {
    const auto info = ReadInfoPlist(MainBundleRoot());
    return info && std::find(info->machServices.begin(), info->machServices.end(), name) != info->machServices.end();
}

// Hands the creation reference to the caller.
template <class T>
T* GiveAway(XPCRef<T> object) {
    if (object) object->references.fetch_add(1, std::memory_order_relaxed);
    return object.get();
}

template <class T>
void SetNumber(xpc_object_t dictionary, const char* key, wire::Type type, T value) {
    if (auto* d = AsDictionary(dictionary)) d->Set(type, key, &value, sizeof value);
}

template <class T>
T GetNumber(xpc_object_t dictionary, const char* key, wire::Type type) {
    const auto* d = AsDictionary(dictionary);
    return d ? d->Number<T>(key, type) : T{};
}

const char* GetBytes(xpc_object_t dictionary, const char* key, wire::Type type, uint32_t* length = nullptr) {
    const auto* d = AsDictionary(dictionary);
    return d ? d->Value(key, type, length) : nullptr;
}

}  // namespace

xpc_connection_t xpc_connection_create_mach_service(const char* name, dispatch_queue_t, uint64_t flags) {
    if (!(flags & XPC_CONNECTION_MACH_SERVICE_LISTENER)) return xpc_connection_create(name, nullptr);
    if (!name || !MayRegister(name)) return nullptr;
    return GiveAway(XPCListener::Create(name));
}

xpc_connection_t xpc_connection_create(const char* name, dispatch_queue_t) {
    return GiveAway(XPCConnection::Client(name));
}

void xpc_connection_set_event_handler(xpc_connection_t connection, xpc_handler_t handler) {
    if (auto* c = AsConnection(connection))
        c->SetEventHandler(std::move(handler));
    else if (auto* listener = AsListener(connection))
        listener->SetEventHandler(std::move(handler));
}

void xpc_connection_resume(xpc_connection_t connection) {
    if (auto* c = AsConnection(connection))
        c->Resume();
    else if (auto* listener = AsListener(connection))
        listener->Resume();
}

void xpc_connection_suspend(xpc_connection_t connection) {
    if (auto* c = AsConnection(connection)) c->Suspend();
}

void xpc_connection_cancel(xpc_connection_t connection) {
    if (auto* c = AsConnection(connection))
        c->Cancel();
    else if (auto* listener = AsListener(connection))
        listener->Cancel();
}

pid_t xpc_connection_get_pid(xpc_connection_t connection) {
    const auto* c = AsConnection(connection);
    return c ? c->Pid() : 0;
}

void xpc_connection_send_message(xpc_connection_t connection, xpc_object_t message) {
    auto* c = AsConnection(connection);
    const auto* m = AsDictionary(message);
    if (c && m) c->Send(*m);
}

void xpc_connection_send_message_with_reply(xpc_connection_t connection, xpc_object_t message, dispatch_queue_t,
                                            xpc_handler_t handler) {
    auto* c = AsConnection(connection);
    const auto* m = AsDictionary(message);
    if (c && m) c->SendWithReply(*m, std::move(handler));
}

void xpc_connection_send_barrier(xpc_connection_t connection, dispatch_block_t block) {
    if (auto* c = AsConnection(connection)) c->SendBarrier(std::move(block));
}

void xpc_main(xpc_connection_handler_t handler) {
    const auto info = ReadInfoPlist(MainBundleRoot());
    const std::string* name = info ? info->String("CFBundleIdentifier") : nullptr;
    const xpc_connection_t listener = name ? GiveAway(XPCListener::Create(*name)) : nullptr;
    if (!listener) {
        std::fprintf(stderr, "xpc: the service of %s can't be registered\n", MainBundleRoot().c_str());
        std::exit(EXIT_FAILURE);
    }
    xpc_connection_set_event_handler(listener, [handler](xpc_object_t peer) { handler(peer); });
    xpc_connection_resume(listener);
    dispatch_main();
}

// --- messages --------------------------------------------------------------------------------------------------------

xpc_object_t xpc_dictionary_create(const char* const*, const xpc_object_t*, size_t) {
    return new XPCDictionary;
}

xpc_object_t xpc_dictionary_create_reply(xpc_object_t message) {
    auto* request = AsDictionary(message);
    const uint64_t number = request ? request->TakeReplyNumber() : 0;
    if (number == 0) return nullptr;
    auto* reply = new XPCDictionary;
    reply->MakeReplyTo(number);
    return reply;
}

xpc_connection_t xpc_dictionary_get_remote_connection(xpc_object_t object) {
    const auto* message = AsDictionary(object);
    return message ? message->Connection() : CurrentConnection();
}

void xpc_dictionary_set_bool(xpc_object_t dictionary, const char* key, bool value) {
    SetNumber(dictionary, key, wire::Type::Bool, value);
}

void xpc_dictionary_set_int64(xpc_object_t dictionary, const char* key, int64_t value) {
    SetNumber(dictionary, key, wire::Type::Int64, value);
}

void xpc_dictionary_set_uint64(xpc_object_t dictionary, const char* key, uint64_t value) {
    SetNumber(dictionary, key, wire::Type::UInt64, value);
}

void xpc_dictionary_set_double(xpc_object_t dictionary, const char* key, double value) {
    SetNumber(dictionary, key, wire::Type::Double, value);
}

void xpc_dictionary_set_date(xpc_object_t dictionary, const char* key, int64_t value) {
    SetNumber(dictionary, key, wire::Type::Date, value);
}

void xpc_dictionary_set_data(xpc_object_t dictionary, const char* key, const void* bytes, size_t length) {
    auto* d = AsDictionary(dictionary);
    if (d && (bytes || length == 0)) d->Set(wire::Type::Data, key, bytes ? bytes : "", length);
}

void xpc_dictionary_set_uuid(xpc_object_t dictionary, const char* key, const unsigned char uuid[16]) {
    auto* d = AsDictionary(dictionary);
    if (d && uuid) d->Set(wire::Type::UUID, key, uuid, 16);
}

void xpc_dictionary_set_string(xpc_object_t dictionary, const char* key, const char* text) {
    auto* d = AsDictionary(dictionary);
    if (d && text) d->Set(wire::Type::String, key, text, std::strlen(text) + 1);
}

void xpc_dictionary_set_fd(xpc_object_t dictionary, const char* key, int descriptor) {
    if (auto* d = AsDictionary(dictionary)) d->SetDescriptor(key, descriptor);
}

const void* xpc_dictionary_get_value(xpc_object_t dictionary, const char* key) {
    const auto* d = AsDictionary(dictionary);
    return d ? d->Find(key) : nullptr;
}

bool xpc_dictionary_get_bool(xpc_object_t dictionary, const char* key) {
    return GetNumber<bool>(dictionary, key, wire::Type::Bool);
}

int64_t xpc_dictionary_get_int64(xpc_object_t dictionary, const char* key) {
    return GetNumber<int64_t>(dictionary, key, wire::Type::Int64);
}

uint64_t xpc_dictionary_get_uint64(xpc_object_t dictionary, const char* key) {
    return GetNumber<uint64_t>(dictionary, key, wire::Type::UInt64);
}

double xpc_dictionary_get_double(xpc_object_t dictionary, const char* key) {
    return GetNumber<double>(dictionary, key, wire::Type::Double);
}

int64_t xpc_dictionary_get_date(xpc_object_t dictionary, const char* key) {
    return GetNumber<int64_t>(dictionary, key, wire::Type::Date);
}

const void* xpc_dictionary_get_data(xpc_object_t dictionary, const char* key, size_t* length) {
    uint32_t size = 0;
    const char* bytes = GetBytes(dictionary, key, wire::Type::Data, &size);
    if (bytes && length) *length = size;
    return bytes;
}

const unsigned char* xpc_dictionary_get_uuid(xpc_object_t dictionary, const char* key) {
    return reinterpret_cast<const unsigned char*>(GetBytes(dictionary, key, wire::Type::UUID));
}

const char* xpc_dictionary_get_string(xpc_object_t dictionary, const char* key) {
    return GetBytes(dictionary, key, wire::Type::String);
}

int xpc_dictionary_dup_fd(xpc_object_t dictionary, const char* key) {
    const auto* d = AsDictionary(dictionary);
    return d ? d->DupDescriptor(key) : -1;
}
