#include "StopSignal.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>

namespace tools {

namespace {

sigset_t StopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    return set;
}

}  // namespace

void BlockStopSignals() {
    const sigset_t set = StopSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

bool AwaitStopSignal(double seconds) {
    using namespace std::chrono;
    const sigset_t set = StopSignals();
    const auto deadline = steady_clock::now() + duration_cast<nanoseconds>(duration<double>(seconds));
    for (;;) {
        const auto left = std::max(deadline - steady_clock::now(), steady_clock::duration::zero());
        const auto wholeSeconds = duration_cast<std::chrono::seconds>(left);
        const timespec timeout{wholeSeconds.count(), duration_cast<nanoseconds>(left - wholeSeconds).count()};
        if (sigtimedwait(&set, nullptr, &timeout) > 0) return true;
        if (errno != EINTR) return false;
    }
}

}  // namespace tools
