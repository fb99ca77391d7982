#include "system/LUser.h"

#include "text/LCopyBounded.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace {

// The reentrant look-ups: getgrgid and getpwnam answer in one buffer for all threads.
template <class Record, class Find>
bool FindRecord(Record& record, std::vector<char>& buffer, Find find) {
    Record* found = nullptr;
    for (buffer.resize(1024);; buffer.resize(buffer.size() * 2)) {
        const int error = find(&record, buffer.data(), buffer.size(), &found);
        if (error != ERANGE) return error == 0 && found;
    }
}

bool IsAdminGroup(gid_t group) {
    struct group record = {};
    std::vector<char> buffer;
    return FindRecord(record, buffer, [&](auto... result) { return ::getgrgid_r(group, result...); }) &&
           std::strcmp(record.gr_name, "admin") == 0;
}

}  // namespace

bool LIsUserRoot() {
    if (::getuid() == 0) return true;
    const char* const name = std::getenv("USER");
    return name && std::strcmp(name, "root") == 0;
}

bool LIsUserAdministrator() {
    if (LIsUserRoot()) return true;
    // 65,537 places here: too many for a stack.
    std::vector<gid_t> groups(static_cast<size_t>(::sysconf(_SC_NGROUPS_MAX)) + 1);
    const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
    for (int i = 0; i < count; i++)
        if (IsAdminGroup(groups[static_cast<size_t>(i)])) return true;
    return false;
}

bool LIsUserRunningAsAdministrator() {
    return LIsUserAdministrator();
}

bool LSwitchToUser() {
    char name[LTextBufferSize] = "";
    for (const char* variable : {"LOGNAME", "USER"})
        if (!*name) LCopyBounded(name, static_cast<const char*>(std::getenv(variable)), sizeof name);
    if (!*name) return false;
    struct passwd record = {};
    std::vector<char> buffer;
    return FindRecord(record, buffer, [&](auto... result) { return ::getpwnam_r(name, result...); }) &&
           ::setuid(record.pw_uid) == 0;
}

bool LSwitchToRoot() {
    return ::setuid(0) == 0;
}
