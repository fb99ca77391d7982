#include "ThreadPolicy.h"

#include <bsd/LMutex.h>

#include <cerrno>
#include <unistd.h>

namespace platform {
namespace {

struct Record {
    LMutex mutex;
    std::optional<PolicyRequest> last L_GUARDED_BY(mutex);
};
Record& TheRecord() {
    static Record& record = *new Record;
    return record;
}

void Put(PolicyRequest request) {
    Record& record = TheRecord();
    LMutexLock guard(record.mutex);
    record.last = request;
}

}  // namespace

std::optional<PolicyRequest> LastPolicyRequest() {
    Record& record = TheRecord();
    LMutexLock guard(record.mutex);
    return record.last;
}

}  // namespace platform

mach_port_t mach_thread_self() {
    static thread_local const pid_t self = ::gettid();
    return static_cast<mach_port_t>(self);
}

int thread_policy_get(mach_port_t, int flavour, thread_time_constraint_policy* policy) {
    if (flavour != THREAD_TIME_CONSTRAINT_POLICY) return EINVAL;
    *policy = {};
    policy->preemptible = 1;
    return 0;
}

int thread_policy_set(mach_port_t thread, int flavour, const thread_time_constraint_policy&) {
    if (flavour != THREAD_TIME_CONSTRAINT_POLICY) return EINVAL;
    platform::Put({thread, true, 0});
    return 0;
}

int thread_priority_set(mach_port_t thread, int priority) {
    platform::Put({thread, false, priority});
    return 0;
}
