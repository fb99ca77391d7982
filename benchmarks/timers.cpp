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
#include <sys/mman.h>
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

// What one timer costs, in nanoseconds and bytes.
struct Costs {
    double create, memory, cancel;
};

// Times `make` and `cancel` of each of n timers, in an order that has nothing to do with their moments.
template <class Make, class Cancel>
Costs Measure(size_t n, Make make, Cancel cancel) {
    const auto each = static_cast<double>(n);
    const auto order = Shuffled(n);
    Costs costs{};
    const double before = AnonymousBytes();
    uint64_t start = bench::NowNs();
    for (size_t i = 0; i < n; i++) make(i, order[i]);
    costs.create = static_cast<double>(bench::NowNs() - start) / each;
    costs.memory = (AnonymousBytes() - before) / each;
    start = bench::NowNs();
    for (const size_t i : order) cancel(i);
    costs.cancel = static_cast<double>(bench::NowNs() - start) / each;
    return costs;
}

#ifdef HAVE_LIBUV
constexpr char kPeer[] = "libuv";

Costs LibuvCosts(size_t n) {
    uv_loop_t loop;
    uv_loop_init(&loop);
    std::vector<std::unique_ptr<uv_timer_t>> timers(n);
    return Measure(
        n,
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
Costs LibuvCosts(size_t) {
    return {};
}
#endif

dispatch_source_t NewSource(dispatch_time_t due, dispatch_block_t handler) {
    const dispatch_source_t source =
        dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_global_queue(0, 0));
    dispatch_source_set_timer(source, due, DISPATCH_TIME_FOREVER, 0);
    dispatch_source_set_event_handler(source, std::move(handler));
    dispatch_resume(source);
    return source;
}

Costs SourceCosts(size_t n) {
    std::vector<dispatch_source_t> sources(n);
    const dispatch_time_t base = dispatch_time(DISPATCH_TIME_NOW, kHourNs);
    dispatch_release(NewSource(base, [] {}));  // the queue and its thread come with the first one
    return Measure(
        n,
        [&](size_t i, size_t at) {
            sources[i] =
                NewSource(dispatch_time(base, static_cast<int64_t>(at) * 1000), [&sources, i] { (void)sources[i]; });
        },
        [&](size_t i) {
            dispatch_source_cancel(sources[i]);
            dispatch_release(sources[i]);
        });
}

// The two side by side, several times over, each time in processes of their own: what they cost a process that has made
// no timer before, and neither is favoured by what else the machine does.
void Compare(size_t n) {
    const int rounds = bench::IsQuick() ? 1 : n > 10'000 ? 5 : 25;
    // Shared with the processes, which leave their figures there.
    auto* const costs = static_cast<Costs*>(
        mmap(nullptr, 2 * sizeof(Costs), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    if (costs == MAP_FAILED) exit(1);
    struct {
        bench::Samples create, memory, cancel;
        void Add(const Costs& c) {
            create.Add(c.create);
            memory.Add(c.memory);
            cancel.Add(c.cancel);
        }
        void Print(const std::string& name, const std::string& peer) const {
            const auto vs = [&](const char* what) { return peer.empty() ? "" : peer + what; };
            create.Print(name + ".create", "ns", vs(".create"));
            memory.Print(name + ".memory", "B", vs(".memory"));
            cancel.Print(name + ".cancel", "ns", vs(".cancel"));
        }
    } libuv, source;
    for (int round = 0; round < rounds; round++) {
        Apart([&] { costs[0] = LibuvCosts(n); });
        Apart([&] { costs[1] = SourceCosts(n); });
        libuv.Add(costs[0]);
        source.Add(costs[1]);
    }
    munmap(costs, 2 * sizeof(Costs));
    const std::string count = "." + std::to_string(n), peer = *kPeer ? kPeer + count : "";
    if (*kPeer) libuv.Print(peer, "");
    source.Print("source" + count, peer);
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
    for (const size_t n : {size_t{1'000}, size_t{10'000}, size_t{100'000}}) Compare(n);
    Apart(BareLateness);
    Apart(SourceLateness);
}
