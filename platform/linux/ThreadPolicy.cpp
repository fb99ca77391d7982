#include "ThreadPolicy.h"

#include "Guarded.h"

#include <cerrno>
#include <unistd.h>

namespace platform {
namespace {

Guarded<std::optional<PolicyRequest>>& Record() {
    static auto& record = *new Guarded<std::optional<PolicyRequest>>;
    return record;
}

}  // namespace

std::optional<PolicyRequest> LastPolicyRequest() {
    return Record().Get();
}

}  // namespace platform

// Asked each time: a forked process's thread has another number than the one that forked.
mach_port_t mach_thread_self() {
    return static_cast<mach_port_t>(::gettid());
}

int thread_policy_get(mach_port_t, int flavour, thread_time_constraint_policy* policy) {
    if (flavour != THREAD_TIME_CONSTRAINT_POLICY) return EINVAL;
    *policy = {};
    policy->preemptible = 1;
    return 0;
}

int thread_policy_set(mach_port_t thread, int flavour, const thread_time_constraint_policy&) {
    if (flavour != THREAD_TIME_CONSTRAINT_POLICY) return EINVAL;
    platform::Record().Set(platform::PolicyRequest{thread, true, 0});
    return 0;
}

int thread_priority_set(mach_port_t thread, int priority) {
    platform::Record().Set(platform::PolicyRequest{thread, false, priority});
    return 0;
}
