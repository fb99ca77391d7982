#include "XPCObject.h"

#include <bsd/LMutex.h>

#include <array>
#include <cstdint>
#include <unordered_set>

namespace platform {
namespace {

// Live connections and received messages. Split, so that busy connections don't meet at one lock.
struct Shard {
    LMutex lock;
    std::unordered_set<const xpc_object_s*> objects L_GUARDED_BY(lock);
};

Shard& ShardOf(const xpc_object_s* object) {
    static auto& shards = *new std::array<Shard, 16>;
    return shards[(reinterpret_cast<uintptr_t>(object) >> 6) % shards.size()];
}

const xpc_type_s types[3];

class ErrorObject final : public xpc_object_s {
public:
    ErrorObject() : xpc_object_s(&types[2], false) {}
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

xpc_object_s::xpc_object_s(xpc_type_t objectType, bool isRegistered) : type(objectType), registered(isRegistered) {
    if (!registered) return;
    platform::Shard& shard = ShardOf(this);
    LMutexLock guard(shard.lock);
    shard.objects.insert(this);
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
    if (object->registered) {
        platform::Shard& shard = ShardOf(object);
        LMutexLock guard(shard.lock);
        shard.objects.erase(object);
    }
    delete object;
}

// An object whose last reference is being given back is still registered for a moment: its count is 0 then and stays 0.
xpc_object_t xpc_handle_retain(long handle, xpc_type_t type) {
    auto* object = reinterpret_cast<xpc_object_s*>(handle);
    platform::Shard& shard = ShardOf(object);
    LMutexLock guard(shard.lock);
    if (!shard.objects.contains(object) || object->type != type) return nullptr;
    uint32_t count = object->references.load(std::memory_order_relaxed);
    while (count != 0)
        if (object->references.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel)) return object;
    return nullptr;
}
