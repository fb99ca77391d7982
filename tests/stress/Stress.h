// What the programs of scripts/stress share: `--count N` and `--seed S`, one line per figure, and the command that
// repeats a failure. One thread.
#pragma once

#include <cstdint>
#include <random>
#include <string>

using Random = std::mt19937_64;

// 0 to `end` - 1.
inline int Below(Random& random, int end) {
    return std::uniform_int_distribution(0, end - 1)(random);
}

// The text of a format, as printf has it.
[[gnu::format(printf, 1, 2)]] std::string Text(const char* format, ...);

class Stress {
public:
    // `name` as scripts/stress knows it; `count` is what a run without --count tries. A seed that isn't given is drawn,
    // so that runs differ; it is printed. Ends the program on --help and on bad arguments.
    Stress(const char* name, uint64_t count, int argc, char** argv);

    uint64_t Count() const { return count; }
    uint64_t Seed() const { return seed; }

    // One figure: what was tried and what was lost. `holds`: whether it is as it must be.
    void Figure(const std::string& text, bool holds);
    // A failure: `repeatCount` and `repeatSeed` are what --count and --seed must be to see it again.
    void Fail(const std::string& text, uint64_t repeatCount, uint64_t repeatSeed);

    // What can't be tried here, and why.
    void Skip(const std::string& text) const;

    // Keeps what the tried code reports to the standard error stream out of the output, where thousands of failures are
    // wanted. Sanitizers write past the stream.
    static void Hush();

    // The program's status: 0 if all that was printed holds, else 1.
    int Status() const { return failed ? 1 : 0; }

private:
    const std::string name;
    uint64_t count;
    uint64_t seed = 0;
    bool failed = false;
};
