// LXPCObjectRef: owns one reference to an XPC object for a scope.
#pragma once

#include <xpc/xpc.h>

#include <memory>

struct LXPCReleaseObject {
    void operator()(xpc_object_t object) const { xpc_release(object); }
};
using LXPCObjectRef = std::unique_ptr<xpc_object_s, LXPCReleaseObject>;
