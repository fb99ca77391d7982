#include "system/LProcessList.h"

#include "text/LAscii.h"
#include "threads/LSystemLockMutex.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>

namespace {

std::atomic<int> gGuiUid{-1};

// The number of the first process that fits, or -1.
template <class F>
int Find(F fits) {
    kinfo_proc* list = nullptr;
    const auto count = static_cast<size_t>(LGetBSDProcessList(&list));
    const std::unique_ptr<kinfo_proc, decltype(&std::free)> owner(list, &std::free);
    const std::span<const kinfo_proc> all(list, count);
    const auto found = std::find_if(all.begin(), all.end(), fits);
    return found == all.end() ? -1 : found->p_pid;
}

}  // namespace

int LGetBSDProcessList(kinfo_proc** list) {
    return static_cast<int>(::copy_process_list(list));
}

int LGetBSDProcessUid(const char* name) {
    return name ? Find([&](const kinfo_proc& one) { return LAsciiCompareNoCase(one.p_comm, name) == 0; }) : -1;
}

int LGetProcessUid(const char* name) {
    if (gGuiUid >= 0) return gGuiUid;
    const int number = LGetBSDProcessUid(name);
    LSystemLockMutex lock("UID");
    lock.LockForever();
    gGuiUid = number;
    lock.Unlock();
    return number;
}

bool LIsApplicationRunning(const char* name) {
    constexpr size_t kNameLength = 16;
    if (!name) return false;
    const std::string_view wanted = std::string_view(name).substr(0, kNameLength);
    return Find([&](const kinfo_proc& one) { return wanted == one.p_comm; }) >= 0;
}
