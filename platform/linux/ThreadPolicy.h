// Test seam: what was asked for the scheduling of a thread.
#pragma once

#include <mach/thread_policy.h>

#include <optional>

namespace platform {

struct PolicyRequest {
    mach_port_t thread;
    bool isTimeConstraint;
    int priority;  // 0 for a time constraint
};

// The last request of any thread; nothing before the first.
std::optional<PolicyRequest> LastPolicyRequest();

}  // namespace platform
