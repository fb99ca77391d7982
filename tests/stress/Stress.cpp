#include "Stress.h"

#include <CLI/CLI.hpp>

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

std::string Text(const char* format, ...) {
    char text[500];
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    return text;
}

Stress::Stress(const char* programName, uint64_t defaultCount, int argc, char** argv)
    : name(programName), count(defaultCount) {
    CLI::App app("scripts/stress " + name);
    app.add_option("--count", count, "how much to try")->check(CLI::PositiveNumber)->capture_default_str();
    const auto* seedOption = app.add_option("--seed", seed, "where the random choices start; drawn when not given");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::exit(app.exit(error) == 0 ? 0 : 2);
    }
    if (seedOption->count() == 0) seed = std::random_device()();
    setvbuf(stdout, nullptr, _IOLBF, 0);
    printf("%-12s count %" PRIu64 ", seed %" PRIu64 "\n", name.c_str(), count, seed);
}

void Stress::Figure(const std::string& text, bool holds) {
    printf("%-12s %-6s %s\n", name.c_str(), holds ? "ok" : "FAILED", text.c_str());
    failed |= !holds;
}

void Stress::Fail(const std::string& text, uint64_t repeatCount, uint64_t repeatSeed) {
    Figure(text, false);
    printf("%-12s repeat with: scripts/stress %s --count %" PRIu64 " --seed %" PRIu64 "\n", name.c_str(), name.c_str(),
           repeatCount, repeatSeed);
}

void Stress::Skip(const std::string& text) const {
    printf("%-12s %-6s %s\n", name.c_str(), "skips", text.c_str());
}

void Stress::Hush() {
    if (FILE* nowhere = fopen("/dev/null", "we")) stderr = nowhere;  // for good: the stream is used until the end
}
