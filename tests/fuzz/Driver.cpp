// Drives a fuzz target where libFuzzer isn't: replays files, or mutates them.
//
//     fuzz_<target> FILE|FOLDER...                        each file once, folders with all in them
//     fuzz_<target> --count N [--seed S] FILE|FOLDER...   and then N inputs made from them
//
// An input that ends the process, takes more than 100 ms of thread time or doesn't come back is written to a file of
// --keep; the command that repeats it is printed. The limit is the same in a build with sanitizers, which take a few
// times as long.
#include "DriverCoverage.h"
#include "DriverMutator.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// A finding of either sanitizer ends in SIGABRT, which the handler below takes.
extern "C" const char* __asan_default_options() {
    return "abort_on_error=1:malloc_context_size=8:quarantine_size_mb=16:check_printf=0";
}
extern "C" const char* __ubsan_default_options() {
    return "abort_on_error=1:print_stacktrace=1";
}

namespace {

constexpr double kMaxMs = 100;
constexpr time_t kHangSeconds = 20;
constexpr size_t kMaxKnown = 10'000;  // inputs to mutate; more don't lead further

// What the signal handlers look at.
struct {
    const char* program = "";
    char file[4096] = "";
    const uint8_t* data = nullptr;
    size_t size = 0;
    uint64_t run = 0;
} running;

void Tell(const char* text) {
    if (write(STDERR_FILENO, text, strlen(text)) < 0) _exit(1);
}

// Keeps the running input. Only calls that a signal handler may make.
void Keep() {
    const int file = open(running.file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0 || write(file, running.data, running.size) < 0) Tell("fuzz: the input can't be kept\n");
    Tell("fuzz: repeat with: ");
    Tell(running.program);
    Tell(" ");
    Tell(running.file);
    Tell("\n");
}

void OnCrash(int signal) {
    if (running.data) Keep();
    std::signal(signal, SIG_DFL);
    raise(signal);
}

void OnTick(int) {
    static uint64_t last = 0;
    if (running.data && running.run == last) {
        Tell("fuzz: an input doesn't come back\n");
        abort();
    }
    last = running.run;
}

void CatchSignals() {
    std::signal(SIGABRT, OnCrash);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) std::signal(signal, OnCrash);
#endif
    struct sigaction tick {};
    tick.sa_handler = OnTick;
    tick.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &tick, nullptr);
    const itimerval each{{kHangSeconds, 0}, {kHangSeconds, 0}};
    setitimer(ITIMER_REAL, &each, nullptr);
}

double ThreadMs() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
}

std::string BytesOf(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

class Driver {
public:
    Driver(uint64_t seed, size_t maxLength, std::string keepFolder)
        : mutator(seed, maxLength), folder(std::move(keepFolder)) {}

    void AddSeed(const std::filesystem::path& path) {
        known.push_back(BytesOf(path));
        mutator.LearnWords(known.back());
        snprintf(running.file, sizeof running.file, "%s", path.c_str());
        Run(known.back());
    }

    void Mutate(uint64_t count) {
        if (known.empty()) known.emplace_back();
        snprintf(running.file, sizeof running.file, "%s/%s-%d", folder.c_str(),
                 std::filesystem::path(running.program).filename().c_str(), getpid());
        for (uint64_t i = 0; i < count; i++) {
            const std::string input = mutator.Make(known);
            if (Run(input) && known.size() < kMaxKnown) known.push_back(input);
        }
    }

    // One line, which scripts/stress reads as well.
    void Report(double seconds) const {
        printf("%s inputs %" PRIu64 " seconds %.1f worst_ms %.2f kept %zu edges %zu\n", running.program, running.run,
               seconds, worstMs, known.size(), coverage::EdgesReached());
    }

private:
    // Whether the input led anywhere new.
    bool Run(const std::string& input) {
        double ms = TimeOf(input);
        const bool isNew = coverage::HasNew();
        // What the machine did meanwhile is charged to the thread as well, so the least of three counts.
        for (int again = 0; ms > kMaxMs && again < 2; again++) ms = std::min(ms, TimeOf(input));
        worstMs = std::max(worstMs, ms);
        running.data = nullptr;
        if (ms <= kMaxMs) return isNew;
        fprintf(stderr, "fuzz: an input took %.0f ms\n", ms);
        running.data = reinterpret_cast<const uint8_t*>(input.data());
        abort();
    }

    static double TimeOf(const std::string& input) {
        const std::unique_ptr<uint8_t[]> exact(new uint8_t[input.size()]);  // so that a read behind it is seen
        std::copy(input.begin(), input.end(), exact.get());
        running.data = exact.get();
        running.size = input.size();
        running.run++;
        coverage::Begin();
        const double begin = ThreadMs();
        LLVMFuzzerTestOneInput(exact.get(), input.size());
        return ThreadMs() - begin;
    }

    Mutator mutator;
    const std::string folder;
    std::vector<std::string> known;
    double worstMs = 0;
};

std::vector<std::filesystem::path> FilesOf(const std::vector<std::string>& paths) {
    std::vector<std::filesystem::path> files;
    for (const std::string& path : paths) {
        if (!std::filesystem::is_directory(path)) {
            files.emplace_back(path);
            continue;
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path))
            if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Replays and mutates inputs of one fuzz target");
    uint64_t count = 0, seed = 0;
    size_t maxLength = 4096;
    std::string keep = ".";
    std::vector<std::string> paths;
    app.add_option("--count", count, "how many inputs to make");
    const auto* seedOption = app.add_option("--seed", seed, "where the random choices start; drawn when not given");
    app.add_option("--max-length", maxLength, "bytes of a made input")->capture_default_str();
    app.add_option("--keep", keep, "folder for an input that fails")->check(CLI::ExistingDirectory);
    app.add_option("path", paths, "inputs, and folders of inputs")->check(CLI::ExistingPath);
    CLI11_PARSE(app, argc, argv);
    if (seedOption->count() == 0) seed = std::random_device()();
    if (count > 0) printf("%s seed %" PRIu64 "\n", argv[0], seed);
    fflush(stdout);

    running.program = argv[0];
    CatchSignals();
    timespec begin{}, end{};
    clock_gettime(CLOCK_MONOTONIC, &begin);
    Driver driver(seed, maxLength, keep);
    for (const auto& path : FilesOf(paths)) driver.AddSeed(path);
    if (count > 0) driver.Mutate(count);
    clock_gettime(CLOCK_MONOTONIC, &end);
    driver.Report(static_cast<double>(end.tv_sec - begin.tv_sec) +
                  static_cast<double>(end.tv_nsec - begin.tv_nsec) / 1e9);
    return 0;
}
