// Runs a fuzz target: under libFuzzer with the inputs that it makes, elsewhere with those of files:
//
//     fuzz_<target> FILE|FOLDER...    each file once, folders with all in them
//
// An input may take 100 ms of thread time, the same in a build with sanitizers, which take a few times as long.
#include "Fuzz.h"
#include "support/TempFolder.h"

#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <vector>

// A finding of either sanitizer ends in SIGABRT.
extern "C" const char* __asan_default_options() {
    return "abort_on_error=1:malloc_context_size=8:quarantine_size_mb=16:check_printf=0";
}
extern "C" const char* __ubsan_default_options() {
    return "abort_on_error=1:print_stacktrace=1";
}

namespace {

constexpr double kMostMs = 100;

double ThreadMs() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
}

double TimeOf(const uint8_t* data, size_t size) {
    const double begin = ThreadMs();
    TryInput(data, size);
    return ThreadMs() - begin;
}

// The slowest input's time is told at the end, however that comes.
struct Slowest {
    double ms = 0;
    ~Slowest() { dprintf(STDERR_FILENO, "slowest_ms %.2f\n", ms); }  // the store's target replaces the stream
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Slowest slowest;
    double ms = TimeOf(data, size);
    // What the machine did meanwhile is charged to the thread as well, so the least of three counts.
    for (int again = 0; ms > kMostMs && again < 2; again++) ms = std::min(ms, TimeOf(data, size));
    Require(ms <= kMostMs, "an input takes " + std::to_string(kMostMs) + " ms at most");
    slowest.ms = std::max(slowest.ms, ms);
    return 0;
}

#ifndef WITH_LIBFUZZER
namespace {

std::string running;

void TellFile(int) {
    const std::string_view text = running;
    if (write(STDERR_FILENO, text.data(), text.size()) < 0) _exit(1);
    std::signal(SIGABRT, SIG_DFL);
    std::abort();
}

void TryFile(const std::filesystem::path& path) {
    running = "fuzz: this was " + path.string() + "\n";
    const std::string bytes = BytesOf(path);
    const std::vector<uint8_t> exact(bytes.begin(), bytes.end());  // so that a read behind it is seen
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

}  // namespace

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::signal(SIGABRT, TellFile);
    size_t count = 0;
    for (int i = 1; i < argc; i++) {
        std::vector<fs::path> files{argv[i]};
        if (fs::is_directory(argv[i])) files.assign(fs::recursive_directory_iterator(argv[i]), {});
        std::sort(files.begin(), files.end());
        for (const fs::path& file : files)
            if (fs::is_regular_file(file)) TryFile(file), count++;
    }
    printf("%zu inputs\n", count);
    return count > 0 ? 0 : 1;
}
#endif
