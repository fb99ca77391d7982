// AcceptPause: what a listening socket of the main thread's set does while descriptors have run out. Those who wait
// stay in the socket's queue; looking again at once would spin, giving up would make the service deaf. Any thread.
#pragma once

#include <functional>

namespace platform {

class AcceptPause {
public:
    // While there are descriptors: the timer queue takes one of its own.
    AcceptPause();

    // Whether accept failed with this errno for want of descriptors or memory.
    static bool IsNeeded(int error);
    // Runs `lookAgain` on the main queue a little later.
    void Then(std::function<void()> lookAgain) const;
};

}  // namespace platform
