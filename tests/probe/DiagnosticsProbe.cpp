// A program with the diagnostics of the library, which ends in the way that its argument names. It writes "ready" once
// all is installed.
#include "debug/LDebugSignals.h"
#include "debug/LHangDetector.h"

#include <dispatch/dispatch.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>

namespace {

// A chunk's link that leads nowhere: the next malloc that looks for room reads it, under its lock.
void FaultInMalloc() {
    std::atexit([] {
        void* volatile more = std::malloc(5'000);  // who gets here from a handler faults again
        std::free(more);
    });
    std::thread([] {}).join();  // malloc takes no lock before the first thread
    void* volatile kept = std::malloc(4'000);
    void* volatile behind = std::malloc(4'000);  // a freed neighbour of the rest would join it
    void* volatile* const freed = static_cast<void* volatile*>(kept);
    std::free(kept);
    freed[1] = reinterpret_cast<void*>(64);
    behind = std::malloc(5'000);
    std::free(behind);
}

size_t FillStack(size_t depth) {
    volatile char block[4'096];
    block[depth % sizeof block] = 1;
    return depth == SIZE_MAX ? 0 : FillStack(depth + 1) + static_cast<size_t>(block[0]);
}

void FaultInTwoThreads() {
    const auto faultAt = [](uintptr_t number) {
        volatile uintptr_t address = number;
        *reinterpret_cast<volatile char*>(address) = 1;
    };
    std::thread other(faultAt, 64);
    faultAt(128);
    other.join();
}

void WaitForEver() {
    for (;;) pause();
}

// Handlers of the global queue and threads of its own, all of them in the heap.
void Work() {
    const auto work = [] {
        for (;;) std::string(static_cast<size_t>(std::rand() % 9'000), 'x').append("y");
    };
    std::thread(work).detach();
    std::thread(work).detach();
    std::function<void()> again = [&again] {
        std::string(5'000, 'x').append("y");
        dispatch_async(dispatch_get_global_queue(0, 0), again);
    };
    again();
    WaitForEver();
}

struct Stops {
    ~Stops() { ::raise(SIGSTOP); }
};

struct Hangs {
    ~Hangs() { WaitForEver(); }
};

// Without a destructor: the main thread reads while another one ends the process.
constexpr struct {
    const char* name;
    void (*run)();
} kEnds[] = {
    {"malloc", FaultInMalloc},
    {"stack", [] { FillStack(0); }},
    {"threads", FaultInTwoThreads},
    {"ill", [] { __builtin_trap(); }},
    {"work", Work},
    {"wait", WaitForEver},
    {"hang", WaitForEver},
    {"stop", WaitForEver},
    {"return", [] {}},
};

}  // namespace

int main(int argc, char** argv) {
    const std::string_view end = argc > 1 ? argv[1] : "return";
    LDebugCatchFaults();
    if (!LDebugCatchEndSignals()) return 2;
    LDebugHangDetectorInit();
    if (end == "hang") static const Hangs hangs;
    if (end == "stop") static const Stops stops;
    std::puts("ready");
    std::fflush(stdout);
    for (const auto& one : kEnds)
        if (end == one.name) one.run();
    return 0;
}
