// The base of all XPC objects: a reference count, a type, and the registry of live objects by which a handle that was
// kept as a number is told from a stale one. Any thread.
#pragma once

#include <xpc/xpc.h>

#include <atomic>

struct xpc_type_s {};

struct xpc_object_s {
    explicit xpc_object_s(xpc_type_t objectType) : type(objectType) {}
    virtual ~xpc_object_s() = default;
    xpc_object_s(const xpc_object_s&) = delete;
    xpc_object_s& operator=(const xpc_object_s&) = delete;

    // Makes the object known by its address; once, by a whole object: a late hint about another one that lay at the
    // same address may find it from then on.
    void BecomeKnown();

    const xpc_type_t type;
    bool isKnown = false;
    std::atomic<uint32_t> references{1};
    xpc_object_s* nextRegistered = nullptr;  // the registry's
};

namespace platform {

// Holds one reference for a scope.
template <class T>
class XPCRef {
public:
    XPCRef() = default;
    static XPCRef Adopt(T* object) { return XPCRef(object); }
    static XPCRef Retain(T* object) {
        if (object) object->references.fetch_add(1, std::memory_order_relaxed);
        return XPCRef(object);
    }
    ~XPCRef() { xpc_release(object_); }
    XPCRef(XPCRef&& other) noexcept : object_(other.object_) { other.object_ = nullptr; }
    XPCRef& operator=(XPCRef&& other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    XPCRef(const XPCRef& other) : XPCRef(Retain(other.object_)) {}
    XPCRef& operator=(const XPCRef& other) { return *this = XPCRef(other); }

    T* get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }

private:
    explicit XPCRef(T* object) : object_(object) {}
    T* object_ = nullptr;
};

}  // namespace platform
