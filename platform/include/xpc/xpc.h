// XPC, the subset that this system calls: named local services, connections and flat messages of typed values. The wire
// and the service folder are described in docs/protocol.md.
//
// Objects are reference counted: xpc_*_create gives one reference, xpc_release takes one back. Connection and message
// handles are also kept in a registry of live objects, so that a stale one can be told (xpc_handle_retain).
// All functions may be called from any thread. Events of one connection are delivered one at a time, in order, on pool
// threads of the global queue; events of different connections run side by side.
#pragma once

#include <dispatch/dispatch.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <sys/types.h>

struct xpc_object_s;
struct xpc_type_s;
using xpc_object_t = xpc_object_s*;
using xpc_connection_t = xpc_object_s*;
using xpc_type_t = const xpc_type_s*;
using xpc_handler_t = std::function<void(xpc_object_t)>;
using xpc_connection_handler_t = void (*)(xpc_connection_t peer);

extern const xpc_type_t XPC_TYPE_DICTIONARY;
extern const xpc_type_t XPC_TYPE_CONNECTION;
extern const xpc_type_t XPC_TYPE_ERROR;

// The three error events, told apart by identity. Immortal: retain and release do nothing.
extern const xpc_object_t XPC_ERROR_CONNECTION_INVALID;
extern const xpc_object_t XPC_ERROR_CONNECTION_INTERRUPTED;
extern const xpc_object_t XPC_ERROR_TERMINATION_IMMINENT;

inline constexpr uint64_t XPC_CONNECTION_MACH_SERVICE_LISTENER = 1;

xpc_type_t xpc_get_type(xpc_object_t object);
xpc_object_t xpc_retain(xpc_object_t object);
void xpc_release(xpc_object_t object);  // null is harmless
// The object behind a handle that was kept as a number, with a reference of its own for the caller, if such an object
// of that type lives; else null.
xpc_object_t xpc_handle_retain(long handle, xpc_type_t type);

// --- connections ------------------------------------------------------------------------------------------------

// With the listener flag: registers the service (the name must be listed under "MachServices" in the main bundle's
// Info.plist) and binds its socket at once; null when it is not listed, another process serves it, or it cannot be
// bound. Listener events arrive on `queue` (the main queue).
// Without: connects at once; null for a null, empty or too long name and where nobody serves it.
xpc_connection_t xpc_connection_create_mach_service(const char* name, dispatch_queue_t queue, uint64_t flags);
// A connection to a service of the application's bundle (one that runs xpc_main); results as above.
xpc_connection_t xpc_connection_create(const char* name, dispatch_queue_t queue);

// Connections start suspended. Resume of one that is not suspended is harmless.
void xpc_connection_set_event_handler(xpc_connection_t connection, xpc_handler_t handler);
void xpc_connection_resume(xpc_connection_t connection);
void xpc_connection_suspend(xpc_connection_t connection);
// Ends the connection for good without waiting; one "invalid" event follows unless there was one before. A
// listener is cancelled on the main thread.
void xpc_connection_cancel(xpc_connection_t connection);
// The peer's process number folded into 1..99,999 (two peers may share one); 0 when unknown.
pid_t xpc_connection_get_pid(xpc_connection_t connection);

// Hands a message to the socket, or to a bounded queue when the socket is full. A peer that lets the queue run over is
// disconnected. A client connection whose server went away connects again first.
void xpc_connection_send_message(xpc_connection_t connection, xpc_object_t message);
// `handler` runs once on `queue` (the main queue), with the reply or an error.
void xpc_connection_send_message_with_reply(xpc_connection_t connection, xpc_object_t message, dispatch_queue_t queue,
                                            xpc_handler_t handler);
// `block` runs as an event of the connection after everything sent before was handed to the kernel (or dropped).
void xpc_connection_send_barrier(xpc_connection_t connection, dispatch_block_t block);

// Serves as the service of a bundle: `handler` gets each peer. Never returns.
[[noreturn]] void xpc_main(xpc_connection_handler_t handler);

// --- messages ---------------------------------------------------------------------------------------------------

// Always an empty dictionary: `keys`, `values` and `count` exist for the signature's sake and must be null and 0.
xpc_object_t xpc_dictionary_create(const char* const* keys, const xpc_object_t* values, size_t count);
// Null when the message expects no reply, was answered already, or is no received message.
xpc_object_t xpc_dictionary_create_reply(xpc_object_t message);
// The connection that a received message came over; for an error, the one whose handler is running. No reference.
xpc_connection_t xpc_dictionary_get_remote_connection(xpc_object_t object);

// Setters copy; a later value of the same key replaces the earlier one; a null pointer is skipped.
// A descriptor is duplicated.
void xpc_dictionary_set_bool(xpc_object_t dictionary, const char* key, bool value);
void xpc_dictionary_set_int64(xpc_object_t dictionary, const char* key, int64_t value);
void xpc_dictionary_set_uint64(xpc_object_t dictionary, const char* key, uint64_t value);
void xpc_dictionary_set_double(xpc_object_t dictionary, const char* key, double value);
void xpc_dictionary_set_date(xpc_object_t dictionary, const char* key, int64_t value);
void xpc_dictionary_set_data(xpc_object_t dictionary, const char* key, const void* bytes, size_t length);
void xpc_dictionary_set_uuid(xpc_object_t dictionary, const char* key, const unsigned char uuid[16]);
void xpc_dictionary_set_string(xpc_object_t dictionary, const char* key, const char* text);
void xpc_dictionary_set_fd(xpc_object_t dictionary, const char* key, int descriptor);

// The presence of a key: non-null when there is one. Only to be compared with null.
const void* xpc_dictionary_get_value(xpc_object_t dictionary, const char* key);
// Getters: the value when the entry has exactly this type, else 0, false, null or -1. Pointers live as long as the
// dictionary. A null `length` is allowed; it is left alone when there is no such data.
bool xpc_dictionary_get_bool(xpc_object_t dictionary, const char* key);
int64_t xpc_dictionary_get_int64(xpc_object_t dictionary, const char* key);
uint64_t xpc_dictionary_get_uint64(xpc_object_t dictionary, const char* key);
double xpc_dictionary_get_double(xpc_object_t dictionary, const char* key);
int64_t xpc_dictionary_get_date(xpc_object_t dictionary, const char* key);
const void* xpc_dictionary_get_data(xpc_object_t dictionary, const char* key, size_t* length);
const unsigned char* xpc_dictionary_get_uuid(xpc_object_t dictionary, const char* key);
const char* xpc_dictionary_get_string(xpc_object_t dictionary, const char* key);
int xpc_dictionary_dup_fd(xpc_object_t dictionary, const char* key);  // a new descriptor, the caller's to close
