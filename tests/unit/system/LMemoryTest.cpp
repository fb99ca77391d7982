#include "system/LMemory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

TEST(LMemory, HeapSizesAreTheLimitsCutTo32Bits) {
    const rlim_t over = 0x1'0000'0005;
    struct {
        rlim_t soft, hard;
        uint32_t available, total;
    } const cases[] = {{RLIM_INFINITY, RLIM_INFINITY, 0xFFFFFFFF, 0xFFFFFFFF},
                       {0x7000'0000, over, 0x7000'0000, 0xFFFFFFFF},
                       {0x7000'0000, 0xFFFF'FFFE, 0x7000'0000, 0xFFFF'FFFE}};
    for (const auto& [soft, hard, available, total] : cases) {
        const pid_t child = ::fork();  // a hard limit can't be raised again
        if (child == 0) {
            const rlimit limits = {soft, hard};
            if (::setrlimit(RLIMIT_DATA, &limits) != 0) ::_exit(2);
            ::_exit(LMemoryGetFreeHeapSize() == available && LMemoryGetTotalHeapSize() == total ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << std::hex << soft << " " << hard;
    }
}

TEST(LMemory, PhysicalMemoryIsTheKernels) {
    std::ifstream file("/proc/meminfo");
    std::string word;
    uint64_t kilobytes = 0;
    ASSERT_TRUE(file >> word >> kilobytes);
    ASSERT_EQ(word, "MemTotal:");
    EXPECT_EQ(LMemoryGetPhysicalMemorySize(), kilobytes * 1024);
}
