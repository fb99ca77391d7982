#include "DriverCoverage.h"

#include <array>
#include <bit>
#include <cstdint>

namespace {

constexpr size_t kEdges = 1 << 16;  // told apart; a few share a place

std::array<uint8_t, kEdges> counts;  // of this input
std::array<uint8_t, kEdges> seen;    // of all: a bit per magnitude of the count
std::array<uint32_t, kEdges> touched;
size_t touchedCount = 0;
size_t edgesReached = 0;
uintptr_t previous = 0;

}  // namespace

// Blocks are told by their distance to this function, so that a seed does the same wherever the program is loaded.
extern "C" void __sanitizer_cov_trace_pc() {
    const auto block = reinterpret_cast<uintptr_t>(__builtin_return_address(0)) -
                       reinterpret_cast<uintptr_t>(&__sanitizer_cov_trace_pc);
    const auto edge = static_cast<uint32_t>((block ^ previous) % kEdges);
    previous = block << 1;
    uint8_t& count = counts[edge];
    if (count == 0 && touchedCount < kEdges) touched[touchedCount++] = edge;
    if (count < 0xFF) count++;
}

void coverage::Begin() {
    for (size_t i = 0; i < touchedCount; i++) counts[touched[i]] = 0;
    touchedCount = 0;
    previous = 0;
}

bool coverage::HasNew() {
    bool isNew = false;
    for (size_t i = 0; i < touchedCount; i++) {
        const uint8_t magnitude = std::bit_floor(counts[touched[i]]);
        uint8_t& known = seen[touched[i]];
        isNew |= !(known & magnitude);
        edgesReached += known == 0;
        known |= magnitude;
    }
    return isNew;
}

size_t coverage::EdgesReached() {
    return edgesReached;
}
