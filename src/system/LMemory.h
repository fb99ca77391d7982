// How much memory there is. Pure questions to the system, any thread.
#pragma once

#include <cstdint>

// The soft and the hard limit of the data segment in bytes, at most 0xFFFFFFFF, which also stands for no limit and for
// a limit that can't be read.
uint32_t LMemoryGetFreeHeapSize();
uint32_t LMemoryGetTotalHeapSize();
// Bytes of physical memory; 0 when the system doesn't say.
uint64_t LMemoryGetPhysicalMemorySize();
// Always 0: nothing measures it.
uint32_t LMemoryGetPhysicalMemoryLoad();
