// Failures that pass: the system is short of something, an update writes the file, the disk answers late. What must not
// be lost over one of them is tried again for a while. Any thread.
#pragma once

#include <cerrno>
#include <cstdint>
#include <poll.h>

namespace platform {

bool IsPassing(int error);

// Calls `attempt` until it gives true, fails with an errno that stays, or has failed for kPatienceMs. Gives what it
// gave last, with its errno.
template <class Attempt>
bool Persist(Attempt attempt) {
    constexpr uint32_t kRetryMs = 100, kPatienceMs = 5'000;
    for (uint32_t waitedMs = 0; !attempt(); waitedMs += kRetryMs) {
        if (!IsPassing(errno) || waitedMs >= kPatienceMs) return false;
        ::poll(nullptr, 0, kRetryMs);
    }
    return true;
}

}  // namespace platform
