// Threads as the kernel knows them, and their scheduling.
//
// Requests are recorded and change nothing: Linux has no priorities within its ordinary scheduling, and a real-time
// thread that spins would keep everybody else off a small machine.
#pragma once

#include <cstdint>

using mach_port_t = uint32_t;

// The calling thread's number, unique among the living threads of the system.
mach_port_t mach_thread_self();

inline constexpr int THREAD_TIME_CONSTRAINT_POLICY = 2;
inline constexpr uint32_t THREAD_TIME_CONSTRAINT_POLICY_COUNT = 4;

struct thread_time_constraint_policy {
    uint32_t period = 0, computation = 0, constraint = 0;
    uint32_t preemptible = 0;
};

// Gives the platform's defaults. 0; an error for another flavour.
int thread_policy_get(mach_port_t thread, int flavour, thread_time_constraint_policy* policy);
int thread_policy_set(mach_port_t thread, int flavour, const thread_time_constraint_policy& policy);

// pthread_setschedparam with SCHED_OTHER: Linux refuses every priority but 0 there.
int thread_priority_set(mach_port_t thread, int priority);
