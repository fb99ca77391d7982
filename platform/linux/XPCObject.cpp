#include "XPCObject.h"

#include <bsd/LMutex.h>

#include <array>
#include <cstdint>

namespace platform {
namespace {

// Live connections and received messages, linked through the objects themselves. Many short chains, so that neither
// busy connections meet at one lock nor many live ones make long walks.
struct Shard {
    LMutex lock;
    xpc_object_s* first L_GUARDED_BY(lock) = nullptr;

    xpc_object_s** LinkTo(const xpc_object_s* object) L_REQUIRES(lock) {
        xpc_object_s** link = &first;
        while (*link && *link != object) link = &(*link)->nextRegistered;
        return link;
    }
};

Shard& ShardOf(const xpc_object_s* object) {
    static auto& shards = *new std::array<Shard, 1024>;
    const auto address = reinterpret_cast<uintptr_t>(object);
    return shards[(address >> 4 ^ address >> 14) % shards.size()];
}

const xpc_type_s types[3];

class ErrorObject final : public xpc_object_s {
public:
    ErrorObject() : xpc_object_s(&types[2]) {}
};

}  // namespace
}  // namespace platform

using platform::ShardOf;

const xpc_type_t XPC_TYPE_DICTIONARY = &platform::types[0];
const xpc_type_t XPC_TYPE_CONNECTION = &platform::types[1];
const xpc_type_t XPC_TYPE_ERROR = &platform::types[2];

const xpc_object_t XPC_ERROR_CONNECTION_INVALID = new platform::ErrorObject;
const xpc_object_t XPC_ERROR_CONNECTION_INTERRUPTED = new platform::ErrorObject;
const xpc_object_t XPC_ERROR_TERMINATION_IMMINENT = new platform::ErrorObject;

void xpc_object_s::BecomeKnown() {
    isKnown = true;
    platform::Shard& shard = ShardOf(this);
    LMutexLock guard(shard.lock);
    nextRegistered = shard.first;
    shard.first = this;
}

xpc_type_t xpc_get_type(xpc_object_t object) {
    return object->type;
}

xpc_object_t xpc_retain(xpc_object_t object) {
    if (object && object->type != XPC_TYPE_ERROR) object->references.fetch_add(1, std::memory_order_relaxed);
    return object;
}

void xpc_release(xpc_object_t object) {
    if (!object || object->type == XPC_TYPE_ERROR) return;
    if (object->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    if (object->isKnown) {
        platform::Shard& shard = ShardOf(object);
        LMutexLock guard(shard.lock);
        *shard.LinkTo(object) = object->nextRegistered;
    }
    delete object;
}

// An object whose last reference is being given back is still known for a moment: its count is 0 then and stays 0.
xpc_object_t xpc_handle_retain(long handle, xpc_type_t type) {
    auto* object = reinterpret_cast<xpc_object_s*>(handle);
    platform::Shard& shard = ShardOf(object);
    LMutexLock guard(shard.lock);
    if (!object || !*shard.LinkTo(object) || object->type != type) return nullptr;
    uint32_t count = object->references.load(std::memory_order_relaxed);
    while (count != 0)
        if (object->references.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel)) return object;
    return nullptr;
}
