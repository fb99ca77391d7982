// Timer sources: making, holding and cancelling them beside libuv's timers (where it is installed), and how late a
// thousand of them fire beside one bare timerfd.
#include "Bench.h"

#include <dispatch/dispatch.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <sched.h>
#include <semaphore>
#include <string>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef HAVE_LIBUV
#include <uv.h>
#endif

namespace {

constexpr int kFires = 1000;
constexpr uint64_t kSpreadNs = 2'000'000'000;
constexpr uint64_t kLeadNs = 20'000'000;
constexpr int64_t kHourNs = 3'600'000'000'000;

// Each measurement is a process of its own, so that memory figures start clean.
template <class F>
void Apart(F f) {
    fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0) {
        f();
        fflush(stdout);
        _exit(0);
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid || status != 0) {
        fprintf(stderr, "a measurement failed\n");
        exit(1);
    }
}

double AnonymousBytes() {
    FILE* file = fopen("/proc/self/status", "re");
    char line[200];
    long kilobytes = 0;
    while (file && fgets(line, sizeof line, file)) sscanf(line, "RssAnon: %ld kB", &kilobytes);
    if (file) fclose(file);
    return static_cast<double>(kilobytes) * 1024;
}

std::vector<size_t> Shuffled(size_t n) {
    std::vector<size_t> order(n);
    for (size_t i = 0; i < n; i++) order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(7));
    return order;
}

// Times `make` and `cancel` of each of n timers, in an order that has nothing to do with their moments.
template <class Make, class Cancel>
void Cost(const std::string& name, const std::string& peer, size_t n, Make make, Cancel cancel) {
    const std::string count = "." + std::to_string(n);
    const auto vs = [&](const char* what) { return peer.empty() ? "" : peer + count + what; };
    const auto order = Shuffled(n);
    const double before = AnonymousBytes();
    uint64_t start = bench::NowNs();
    for (size_t i = 0; i < n; i++) make(i, order[i]);
    bench::One(name + count + ".create", "ns", static_cast<double>(bench::NowNs() - start) / static_cast<double>(n),
               vs(".create"));
    bench::One(name + count + ".memory", "B", (AnonymousBytes() - before) / static_cast<double>(n), vs(".memory"));
    start = bench::NowNs();
    for (const size_t i : order) cancel(i);
    bench::One(name + count + ".cancel", "ns", static_cast<double>(bench::NowNs() - start) / static_cast<double>(n),
               vs(".cancel"));
}

#ifdef HAVE_LIBUV
constexpr char kPeer[] = "libuv";

void LibuvCost(size_t n) {
    uv_loop_t loop;
    uv_loop_init(&loop);
    std::vector<std::unique_ptr<uv_timer_t>> timers(n);
    Cost(
        kPeer, "", n,
        [&](size_t i, size_t at) {
            timers[i] = std::make_unique<uv_timer_t>();
            uv_timer_init(&loop, timers[i].get());
            uv_timer_start(
                timers[i].get(), [](uv_timer_t*) {}, 3'600'000 + at, 0);
        },
        [&](size_t i) { uv_timer_stop(timers[i].get()); });
}
#else
constexpr char kPeer[] = "";
void LibuvCost(size_t) {}
#endif

dispatch_source_t NewSource(dispatch_time_t due, dispatch_block_t handler) {
    const dispatch_source_t source =
        dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_global_queue(0, 0));
    dispatch_source_set_timer(source, due, DISPATCH_TIME_FOREVER, 0);
    dispatch_source_set_event_handler(source, std::move(handler));
    dispatch_resume(source);
    return source;
}

void SourceCost(size_t n) {
    std::vector<dispatch_source_t> sources(n);
    const dispatch_time_t base = dispatch_time(DISPATCH_TIME_NOW, kHourNs);
    dispatch_release(NewSource(base, [] {}));  // the queue and its thread come with the first one
    Cost(
        "source", kPeer, n,
        [&](size_t i, size_t at) {
            sources[i] =
                NewSource(dispatch_time(base, static_cast<int64_t>(at) * 1000), [&sources, i] { (void)sources[i]; });
        },
        [&](size_t i) {
            dispatch_source_cancel(sources[i]);
            dispatch_release(sources[i]);
        });
}

uint64_t BootNs() {
    timespec t;
    clock_gettime(CLOCK_BOOTTIME, &t);
    return static_cast<uint64_t>(t.tv_sec) * 1'000'000'000u + static_cast<uint64_t>(t.tv_nsec);
}

uint64_t Due(uint64_t base, size_t i) {
    return base + kLeadNs + i * kSpreadNs / kFires;
}

void BareLateness() {
    bench::Samples samples;
    const int fd = timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC);
    const uint64_t base = BootNs();
    for (size_t i = 0; i < kFires; i++) {
        const uint64_t due = Due(base, i);
        itimerspec setting{};
        setting.it_value = {static_cast<time_t>(due / 1'000'000'000), static_cast<long>(due % 1'000'000'000)};
        timerfd_settime(fd, TFD_TIMER_ABSTIME, &setting, nullptr);
        uint64_t count;
        if (read(fd, &count, sizeof count) != sizeof count) exit(1);
        samples.Add((static_cast<double>(BootNs()) - static_cast<double>(due)) / 1000);
    }
    samples.Print("timerfd.lateness", "us");
}

void SourceLateness() {
    std::vector<double> late(kFires);
    std::counting_semaphore<kFires> fired{0};
    const uint64_t base = BootNs();
    for (size_t i = 0; i < kFires; i++)
        NewSource(Due(base, i), [&, i] {
            late[i] = (static_cast<double>(BootNs()) - static_cast<double>(Due(base, i))) / 1000;
            fired.release();
        });
    bench::Samples samples;
    for (int i = 0; i < kFires; i++) fired.acquire();
    for (const double l : late) samples.Add(l);
    samples.Print("source.lateness", "us", "timerfd.lateness");
}

}  // namespace

int main() {
    for (const size_t n : {size_t{1'000}, size_t{10'000}, size_t{100'000}}) {
        Apart([n] { LibuvCost(n); });
        Apart([n] { SourceCost(n); });
    }
    Apart(BareLateness);
    Apart(SourceLateness);
}
