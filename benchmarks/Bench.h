// What the benchmark programs share: a clock, a sample set that prints one line of JSON per figure, and a timing loop.
// Every figure is printed beside its physical limit or a peer, measured in the same run; "vs" names that other figure:
//
//     {"name":…,"unit":…,"n":…,"min":…,"median":…,"p99":…,"vs":…}
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

namespace bench {

inline uint64_t NowNs() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<uint64_t>(t.tv_sec) * 1'000'000'000u + static_cast<uint64_t>(t.tv_nsec);
}

// A run that only shows that everything works (scripts/bench --quick): a tenth of the repetitions.
inline bool IsQuick() {
    return std::getenv("BENCH_QUICK") != nullptr;
}

// Makes a result look used, so that the optimiser keeps the work that gave it.
inline volatile size_t sink;
inline void Keep(size_t value) {
    sink = value;
}

inline bool IsRate(const std::string& unit) {
    return unit.ends_with("/s");
}

// The values of one figure. For rates the 99th percentile is taken from the slow end: "p99" is always the bad tail.
class Samples {
public:
    void Add(double value) { values.push_back(value); }

    double Median() const { return Sorted()[values.size() / 2]; }

    // One line on standard output; nothing without samples. `vs`: the name of the figure to compare with, or empty.
    void Print(const std::string& name, const std::string& unit, const std::string& vs = "") const {
        if (values.empty()) return;
        const std::vector<double> v = Sorted();
        const size_t n = v.size(), tail = (n * 99 + 99) / 100 - 1;
        const std::string beside = vs.empty() ? "" : ",\"vs\":\"" + vs + "\"";
        printf("{\"name\":\"%s\",\"unit\":\"%s\",\"n\":%zu,\"min\":%.5g,\"median\":%.5g,\"p99\":%.5g%s}\n",
               name.c_str(), unit.c_str(), n, v[0], v[n / 2], IsRate(unit) ? v[n - 1 - tail] : v[tail], beside.c_str());
        fflush(stdout);
    }

private:
    std::vector<double> Sorted() const {
        std::vector<double> v = values;
        std::sort(v.begin(), v.end());
        return v;
    }

    std::vector<double> values;
};

// A figure of one value.
inline void One(const std::string& name, const std::string& unit, double value, const std::string& vs = "") {
    Samples samples;
    samples.Add(value);
    samples.Print(name, unit, vs);
}

// A folder on the file system of the working folder (a folder in memory would cost no disk), removed at the end.
struct Folder {
    std::string path = std::filesystem::current_path() / "bench.XXXXXX";
    Folder() {
        if (!mkdtemp(path.data())) abort();
    }
    ~Folder() { std::filesystem::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
};

// Calls f `times` times, after `warm` calls that do not count. `items` is what one call handles. A unit that ends in
// "/s" gives items per second; "ns", "us" and "ms" give the time of one item.
template <class F>
void Timed(const std::string& name, const std::string& unit, int times, double items, F f, const std::string& vs = "",
           int warm = 1) {
    if (IsQuick()) times = std::max(times / 10, 1);
    Samples samples;
    const double scale = unit == "ns" ? 1 : unit == "us" ? 1e3 : 1e6;
    for (int i = -warm; i < times; i++) {
        const uint64_t start = NowNs();
        f();
        const double ns = static_cast<double>(NowNs() - start);
        if (i >= 0) samples.Add(IsRate(unit) ? items * 1e9 / ns : ns / scale / items);
    }
    samples.Print(name, unit, vs);
}

}  // namespace bench
