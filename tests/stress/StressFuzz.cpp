// scripts/stress fuzz: mutated inputs for every fuzz target (tests/fuzz), shared out so that cheap targets get most of
// them. Each target runs in a process per processor, each with a seed of its own.
#include "Stress.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

struct Target {
    const char* name;
    uint64_t share;    // of 1,000 inputs
    size_t maxLength;  // longer ones take more time and reach little more
};

constexpr Target kTargets[] = {
    {"wire", 272, 2048},   {"times", 150, 64},    {"printf", 130, 512}, {"infoplist", 73, 3000}, {"paths", 60, 1200},
    {"charsets", 30, 256}, {"session", 60, 1500}, {"store", 8, 3000},   {"client", 4, 400},      {"texts", 80, 300},
    {"lines", 23, 2000},   {"kernel", 60, 400},   {"names", 50, 300},
};

struct Result {
    uint64_t inputs = 0;
    size_t kept = 0;
    double seconds = 0;
    double worstMs = 0;
    bool holds = true;
};

struct Process {
    Process(const Target& target, uint64_t count, uint64_t seed) {
        const std::string command = "'" BUILD_FOLDER "/tests/fuzz/fuzz_" + std::string(target.name) + "' --count " +
                                    std::to_string(count) + " --seed " + std::to_string(seed) + " --max-length " +
                                    std::to_string(target.maxLength) + " --keep '" BUILD_FOLDER "/fuzz-found' '" +
                                    SOURCE_FOLDER "/tests/fuzz/corpus/" + target.name + "'";
        output = popen(command.c_str(), "re");
    }

    // Waits for its end.
    void AddTo(Result& result) {
        char line[4096];
        uint64_t inputs = 0;
        size_t kept = 0;
        double seconds = 0, worstMs = 0;
        bool hasReport = false;
        while (output && fgets(line, sizeof line, output)) {
            const std::string text = line;
            const size_t figures = text.find(" inputs ");
            if (figures == text.npos) continue;
            hasReport = sscanf(text.c_str() + figures, " inputs %lu seconds %lf worst_ms %lf kept %zu", &inputs,
                               &seconds, &worstMs, &kept) == 4;
        }
        result.holds &= output && pclose(output) == 0 && hasReport;
        result.inputs += inputs;
        result.kept += kept;
        result.seconds = std::max(result.seconds, seconds);
        result.worstMs = std::max(result.worstMs, worstMs);
    }

    FILE* output;
};

void Fuzz(Stress& stress, const Target& target, uint64_t firstSeed) {
    const auto processors = static_cast<uint64_t>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
    const uint64_t count = std::max<uint64_t>(stress.Count() * target.share / 1000, processors);
    std::vector<Process> processes;
    for (uint64_t i = 0; i < processors; i++) processes.emplace_back(target, (count + i) / processors, firstSeed + i);
    Result result;
    for (Process& process : processes) process.AddTo(result);
    char text[200];
    snprintf(text, sizeof text, "%-9s %9lu inputs, %5.1f s, the slowest %5.2f ms of thread time, %5zu kept",
             target.name, result.inputs, result.seconds, result.worstMs, result.kept);
    if (result.holds)
        stress.Figure(text, true);
    else
        stress.Fail(std::string(text) + ": an input that fails is kept (above), or memory leaks", stress.Count(),
                    stress.Seed());
}

}  // namespace

int main(int argc, char** argv) {
    Stress stress("fuzz", 20'000'000, argc, argv);
    std::filesystem::create_directories(BUILD_FOLDER "/fuzz-found");
    uint64_t seed = stress.Seed();
    for (const Target& target : kTargets) Fuzz(stress, target, seed += 1000);
    return stress.Status();
}
