#include "StopSignal.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>

namespace tools {

namespace {

using Clock = std::chrono::steady_clock;

sigset_t StopSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGTSTP}) sigaddset(&set, number);
    return set;
}

int AwaitSignal(Clock::time_point deadline) {
    using namespace std::chrono;
    const sigset_t set = StopSignals();
    for (;;) {
        const auto left = std::max(deadline - Clock::now(), Clock::duration::zero());
        const auto wholeSeconds = duration_cast<seconds>(left);
        const timespec timeout{wholeSeconds.count(), duration_cast<nanoseconds>(left - wholeSeconds).count()};
        if (const int number = sigtimedwait(&set, nullptr, &timeout); number > 0) return number;
        if (errno != EINTR) return 0;
    }
}

Clock::time_point After(double seconds) {
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

void BlockStopSignals() {
    const sigset_t set = StopSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

int AwaitSignal(double seconds) {
    return AwaitSignal(After(seconds));
}

bool AwaitStopSignal(double seconds) {
    const auto deadline = After(seconds);
    for (;;) {
        const int number = AwaitSignal(deadline);
        if (number != SIGTSTP) return number != 0;
        raise(SIGSTOP);
    }
}

}  // namespace tools
