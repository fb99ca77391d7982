#include "AcceptPause.h"

#include "MainQueue.h"
#include "TimerQueue.h"

#include <cerrno>

namespace platform {

namespace {
constexpr int64_t kPauseNs = 100'000'000;
}

AcceptPause::AcceptPause() {
    TimerQueue::Shared();
}

bool AcceptPause::IsNeeded(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOBUFS;
}

void AcceptPause::Then(std::function<void()> lookAgain) const {
    const dispatch_source_t timer =
        dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_global_queue(0, 0));
    dispatch_source_set_timer(timer, dispatch_time(DISPATCH_TIME_NOW, kPauseNs), DISPATCH_TIME_FOREVER, 0);
    dispatch_source_set_event_handler(timer, [timer, lookAgain = std::move(lookAgain)] {
        MainQueue::Shared().Async(lookAgain);
        dispatch_release(timer);
    });
    dispatch_resume(timer);
}

}  // namespace platform
