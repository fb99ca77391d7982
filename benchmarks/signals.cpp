// Signal objects beside a bare pipe: set and cleared with nobody waiting, and the wake-up of a thread that waits for
// one. Both ends on one processor.
#include "Bench.h"

#include "threads/LSignalObject.h"

#include <atomic>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <thread>
#include <unistd.h>

namespace {

// As little as a waitable event can be.
class Pipe {
public:
    Pipe() {
        if (pipe2(fd, O_CLOEXEC | O_NONBLOCK) != 0) abort();
    }
    ~Pipe() {
        close(fd[0]);
        close(fd[1]);
    }
    void Signal() {
        if (write(fd[1], "", 1) != 1) abort();
    }
    void Reset() {
        char byte;
        if (read(fd[0], &byte, 1) != 1) abort();
    }
    bool WaitSignal(unsigned int) {
        pollfd waited{fd[0], POLLIN, 0};
        return poll(&waited, 1, -1) == 1;
    }

private:
    int fd[2];
};

template <class Signal>
void Measure(const std::string& name, const std::string& vs) {
    constexpr int kCount = 1'000;
    Signal alone;
    bench::Timed(
        name + ".set_and_clear", "ns", 200, kCount,
        [&] {
            for (int i = 0; i < kCount; i++) {
                alone.Signal();
                alone.Reset();
            }
        },
        vs.empty() ? "" : vs + ".set_and_clear");

    const int wakes = bench::IsQuick() ? 300 : 3'000;
    Signal signal;
    bench::Samples latency;
    std::atomic<uint64_t> sentAt{0};
    std::atomic<int> seen{0};
    std::thread waiter([&] {
        for (int i = 0; i < wakes; i++) {
            signal.WaitSignal(kSignalNoTimeOut);
            latency.Add(static_cast<double>(bench::NowNs() - sentAt) / 1000);
            signal.Reset();
            seen = i + 1;
        }
    });
    for (int i = 0; i < wakes; i++) {
        do usleep(200);  // so that the waiter is idle
        while (seen < i);
        sentAt = bench::NowNs();
        signal.Signal();
    }
    waiter.join();
    latency.Print(name + ".wake", "us", vs.empty() ? "" : vs + ".wake");
}

}  // namespace

int main() {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(0, &one);
    sched_setaffinity(0, sizeof one, &one);
    Measure<Pipe>("signal.pipe", "");
    Measure<LSignalObject>("signal", "signal.pipe");
}
