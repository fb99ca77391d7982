// For programs that serve the main queue only while they wait for something: command line tools and tests.
#pragma once

#include <cstdint>
#include <functional>

// Serves the main queue on the calling (main) thread until `until` gives true, looked at after each block, or
// `timeoutMs` milliseconds have passed (0xFFFFFFFF: no time-out). Gives what `until` gave last. An empty `until` never
// becomes true.
bool dispatch_pump_main(const std::function<bool()>& until, uint32_t timeoutMs);
