#include "system/LMemory.h"

#include <algorithm>
#include <sys/resource.h>
#include <unistd.h>

namespace {

uint32_t DataLimit(rlim_t rlimit::*which) {
    rlimit limits = {};
    if (::getrlimit(RLIMIT_DATA, &limits) != 0) return UINT32_MAX;
    return static_cast<uint32_t>(std::min<rlim_t>(limits.*which, UINT32_MAX));
}

}  // namespace

uint32_t LMemoryGetFreeHeapSize() {
    return DataLimit(&rlimit::rlim_cur);
}

uint32_t LMemoryGetTotalHeapSize() {
    return DataLimit(&rlimit::rlim_max);
}

uint64_t LMemoryGetPhysicalMemorySize() {
    const long pages = ::sysconf(_SC_PHYS_PAGES), pageSize = ::sysconf(_SC_PAGESIZE);
    return pages > 0 && pageSize > 0 ? static_cast<uint64_t>(pages) * static_cast<uint64_t>(pageSize) : 0;
}

uint32_t LMemoryGetPhysicalMemoryLoad() {
    return 0;
}
