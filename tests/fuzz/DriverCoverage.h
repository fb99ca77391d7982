// Which edges of the program an input has run over. Counted where everything was built with g++ and SCHEDULEHELPER_FUZZ
// (which has each basic block call __sanitizer_cov_trace_pc); elsewhere no input reaches anything new. One thread.
#pragma once

#include <cstddef>

namespace coverage {

// A new input begins.
void Begin();
// Whether the input ran over an edge that none did before it, or clearly more often than any.
bool HasNew();
size_t EdgesReached();

}  // namespace coverage
